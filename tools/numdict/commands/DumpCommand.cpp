#include "numdict/commands/Commands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/stores/OutputFile.h"
#include "numdict/stores/ResourceRecord.h"
#include "numdict/stores/Resources.h"
#include "numdict/stores/StoreFile.h"

#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>

namespace kavix::numdict {

int runDumpCommand(const DumpCommand& command) {
    const std::optional<RecordFormat> format = tryGetRecordFormat(command.m_format);
    if (!format)
        throw UsageError(
            fmt::format("dump: the format '{}' is unknown; the formats are {}", command.m_format, RECORD_FORMAT_NAMES));
    const std::unique_ptr<Dictionary> dictionary = openStoreFile("dump", command.m_storePath, command.m_options);
    OutputFile output(command.m_outputPath);
    const bool isAligned = *format == RecordFormat::TEXT && command.m_outputPath == "-" && isStandardOutputTerminal();
    const RecordWriter writer(*format, isAligned, getEndOfResourceIDs(*dictionary));
    output.append([&writer](std::string& text) { writer.appendHeader(text); });
    forEachResource(*dictionary, [&](uint64_t resourceID, const ResourceValue& value) {
        output.append([&](std::string& text) { writer.appendRecord(resourceID, value, text); });
    });
    output.finish();
    return EXIT_ALL_WELL;
}

}
