#include "numdict/commands/Arguments.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace kavix::numdict {

namespace {

std::vector<CLI::Option*> getPositionals(CLI::App& command) {
    return command.get_options([](const CLI::Option* option) { return option->get_positional(); });
}

/// Gives values to the positionals of a command that take more of them, the first of these first.
void addValues(CLI::App& command, const std::vector<std::string>& values) {
    std::vector<std::string> extras;
    const std::vector<CLI::Option*> positionals = getPositionals(command);
    for (const std::string& value : values) {
        const auto taker = std::find_if(positionals.begin(), positionals.end(), [](const CLI::Option* positional) {
            return static_cast<int>(positional->count()) < positional->get_items_expected_min() ||
                   positional->get_allow_extra_args();
        });
        if (taker != positionals.end())
            (*taker)->add_result(value);
        else
            extras.insert(extras.begin(), value); // the exception prints them from the last to the first
    }
    if (!extras.empty())
        throw CLI::ExtrasError(extras);
    for (CLI::Option* const positional : positionals)
        if (positional->count() != 0)
            positional->run_callback();
}

}

// CLI11 knows "--" as well, but a command hands it, and what follows, back to the program once it has a value. So CLI11
// only sees what comes before it, and requires no value until what comes after has been added.
void parseArguments(CLI::App& program, int argumentCount, const char* const* arguments) {
    const char* const* const end = arguments + argumentCount;
    const char* const* const mark = std::find(arguments + std::min(1, argumentCount), end, std::string_view("--"));
    const std::vector<std::string> values(mark == end ? end : mark + 1, end);
    std::vector<CLI::Option*> required;
    if (!values.empty())
        for (CLI::App* const command : program.get_subcommands({}))
            for (CLI::Option* const positional : getPositionals(*command))
                if (positional->get_required())
                    required.push_back(positional->required(false));
    program.parse(static_cast<int>(mark - arguments), arguments);
    for (CLI::App* const command : program.get_subcommands()) {
        addValues(*command, values);
        for (const CLI::Option* const positional : getPositionals(*command))
            if (positional->count() == 0 && std::find(required.begin(), required.end(), positional) != required.end())
                throw CLI::RequiredError(positional->get_name());
    }
}

}
