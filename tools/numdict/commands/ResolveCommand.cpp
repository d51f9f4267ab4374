#include "numdict/commands/AnswerPrinter.h"
#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/console/Trim.h"
#include "numdict/input/LineList.h"
#include "numdict/stores/StoreFile.h"

#include <memory>
#include <string_view>

namespace kavix::numdict {

namespace {

/// Opens the store and answers each question, first those on the command line, then those in a file.
/// @param answer  called with the printer and a question
template<typename Answer>
int answerAll(
    const std::string& command, const std::string& storePath, const std::vector<std::string>& questions,
    const std::string& file, bool isJSON, const DictionaryOptions& options, const Answer& answer) {
    const std::unique_ptr<Dictionary> dictionary = openStoreFile(command, storePath, options);
    AnswerPrinter printer(*dictionary, isJSON, isStandardOutputTerminal(), writeStandardOutput);
    for (const std::string& question : questions)
        answer(printer, question);
    if (!file.empty())
        forEachLine(command, file, [&](std::string_view line, uint64_t) { answer(printer, trim(line, LINE_BLANKS)); });
    return printer.getExitCode();
}

}

int runResolveCommand(const ResolveCommand& command) {
    if (command.m_literals.empty() && command.m_file.empty())
        throw UsageError("resolve: specify at least one literal, or a file of literals with --file");
    return answerAll(
        "resolve", command.m_storePath, command.m_literals, command.m_file, command.m_isJSON, command.m_options,
        [](AnswerPrinter& printer, std::string_view literal) { printer.resolve(literal); });
}

int runGetCommand(const GetCommand& command) {
    if (command.m_resourceIDs.empty() && command.m_file.empty())
        throw UsageError("get: specify at least one resource ID, or a file of them with --file");
    return answerAll(
        "get", command.m_storePath, command.m_resourceIDs, command.m_file, command.m_isJSON, command.m_options,
        [](AnswerPrinter& printer, std::string_view resourceID) { printer.get(resourceID); });
}

}
