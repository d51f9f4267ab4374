#include "numdict/stores/StoreFile.h"

#include "core/data-store/store/StoreReader.h"
#include "core/platform/errors/ErrorCatalogue.h"
#include "core/platform/errors/KavixException.h"
#include "core/platform/stream/FileInputStream.h"
#include "core/platform/stream/ReplacingFile.h"
#include "numdict/console/ByteProgress.h"
#include "numdict/console/Failures.h"
#include "numdict/stores/CountingStreams.h"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>

namespace kavix::numdict {

namespace {

/// Runs an operation on a store and lets its refusal name the file.
template<typename Operation>
auto nameFileInRefusal(const std::string& path, Operation operation) {
    try {
        return operation();
    }
    catch (const KavixException& exception) {
        if (!comesFrom(exception, ErrorSites::INVALID_STORE) &&
            !comesFrom(exception, ErrorSites::STORE_NEEDS_ADDRESS_SPACE))
            throw;
        throw StoreFailure(fmt::format("{}: {}", path, exception.getMessage()));
    }
}

}

void checkStoreExists(const std::string& command, const std::string& path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error))
        throw UsageError(fmt::format(
            "{}: there is no store '{}'; 'numdict import --store {} FILE...' makes one", command, path, path));
    if (!std::filesystem::is_regular_file(path, error))
        throw UsageError(fmt::format("{}: '{}' is not a regular file", command, path));
}

ResourceIDWidth readResourceIDWidth(const std::string& path) {
    return nameFileInRefusal(path, [&path] {
        FileInputStream input(path);
        return StoreReader(input).getResourceIDWidth();
    });
}

std::unique_ptr<Dictionary> openStoreFile(
    const std::string& path, uint64_t memoryBudgetBytes, const DictionaryOptions& options) {
    return nameFileInRefusal(path, [&] {
        std::error_code error;
        const uint64_t size = std::filesystem::file_size(path, error);
        FileInputStream file(path);
        ByteProgress progress("opening " + path, error ? 0 : size, "checking every value", options.m_isQuiet);
        CountingInputStream input(file, progress);
        Dictionary::OpenOptions openOptions;
        openOptions.memoryBudgetBytes = memoryBudgetBytes;
        openOptions.checkEveryValue = !options.m_isTrusted;
        openOptions.useHugePages = !options.m_isWithoutHugePages;
        return Dictionary::openStore(input, openOptions);
    });
}

std::unique_ptr<Dictionary> openStoreFile(
    const std::string& command, const std::string& path, const DictionaryOptions& options) {
    checkStoreExists(command, path);
    return openStoreFile(path, getMemoryBudget(command, options.m_memory), options);
}

uint64_t saveStoreFile(const Dictionary& dictionary, ReplacingFile& file, bool isQuiet) {
    ByteProgress progress("saving", 0, "", isQuiet);
    CountingOutputStream output(file.getStream(), progress);
    dictionary.saveStore(output);
    return progress.getBytes();
}

}
