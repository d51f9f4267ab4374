#include "core/data-store/dictionary/DatatypeIDs.h"
#include "numdict/commands/StoreCommands.h"
#include "numdict/console/Failures.h"
#include "numdict/console/StandardOutput.h"
#include "numdict/stores/OutputFile.h"
#include "numdict/stores/ResourceRecord.h"

#include <fmt/format.h>

#include <optional>

namespace kavix::numdict {

int runDumpCommand(const DumpCommand& command) {
    constexpr size_t BUFFER_SIZE = size_t(1) << 18;
    const std::optional<RecordFormat> format = tryGetRecordFormat(command.m_format);
    if (!format)
        throw UsageError(
            fmt::format("dump: the format '{}' is unknown; the formats are {}", command.m_format, RECORD_FORMAT_NAMES));
    const std::unique_ptr<Dictionary> dictionary = openStoreFile("dump", command.m_storePath, command.m_options);
    OutputFile output(command.m_outputPath);
    const uint64_t end = getEndOfResourceIDs(*dictionary);
    const RecordWriter writer(
        *format, *format == RecordFormat::TEXT && command.m_outputPath == "-" && isStandardOutputTerminal(), end);
    std::string text;
    writer.appendHeader(text);
    for (uint64_t resourceID = 1; resourceID < end; ++resourceID)
        if (dictionary->tryGetResourceDatatypeID(resourceID) != D_NONE) {
            writer.appendRecord(resourceID, dictionary->getValue(resourceID), text);
            if (text.size() >= BUFFER_SIZE) {
                output.write(text);
                text.clear();
            }
        }
    output.write(text);
    output.finish();
    return EXIT_ALL_WELL;
}

}
