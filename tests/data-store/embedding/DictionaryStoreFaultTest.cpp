// Saving and opening where every call in turn fails, or the process is killed.

#include "core/data-store/embedding/Dictionary.h"

#include "core/platform/errors/SystemCallException.h"
#include "core/platform/stream/FileInputStream.h"
#include "core/platform/stream/ReplacingFile.h"
#include "support/ExpectError.h"
#include "support/FaultInjection.h"
#include "support/KilledProcess.h"
#include "support/SampleStore.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace kavix {

using test::Call;
using test::failEach;
using test::Fault;
using test::FaultPoint;
using test::TemporaryFolder;

namespace {

void saveToFile(const Dictionary& dictionary, const std::string& fileName) {
    ReplacingFile file(fileName);
    dictionary.saveStore(file.getStream());
    file.commit();
}

std::unique_ptr<Dictionary> openFile(const std::string& fileName, bool checkEveryValue = true) {
    FileInputStream input(fileName);
    Dictionary::OpenOptions options;
    options.checkEveryValue = checkEveryValue;
    return Dictionary::openStore(input, options);
}

}

TEST(DictionaryStore, WhereverSavingFailsTheStoreIsTheOldOneOrTheNewOne) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    const std::unique_ptr<Dictionary> oldDictionary = test::makeFilledDictionary(ResourceIDWidth::BITS_32, 10);
    const std::unique_ptr<Dictionary> newDictionary = test::makeFilledDictionary(ResourceIDWidth::BITS_32, 100);
    const uint64_t oldEnd = oldDictionary->takeSnapshot().resourceIDEnd;
    const std::vector<std::string> oldResources = test::listResources(*oldDictionary, oldEnd);
    const std::vector<std::string> newResources = test::listResources(*newDictionary, oldEnd);
    saveToFile(*oldDictionary, fileName);
    const auto expectStore = [&](const std::vector<std::string>& resources) {
        EXPECT_EQ(test::listResources(*openFile(fileName), oldEnd), resources);
    };

    EXPECT_GE(
        failEach(
            Call::WRITE, ENOSPC,
            [&](FaultPoint& point) {
                const test::ShortTransfers shortTransfers(50'000);
                const Fault fault(point);
                if (point.getNumber() < 4) {
                    EXPECT_THROW(saveToFile(*newDictionary, fileName), SystemCallException);
                    expectStore(oldResources);
                }
            }),
        3u);
    for (const Call call : {Call::OPEN, Call::FLOCK, Call::FTRUNCATE, Call::FSYNC, Call::RENAME}) {
        const Fault fault(call, 1, EIO);
        EXPECT_THROW(saveToFile(*newDictionary, fileName), SystemCallException);
        EXPECT_TRUE(fault.wasHit());
        expectStore(oldResources);
    }
    saveToFile(*newDictionary, fileName);
    expectStore(newResources);
}

TEST(DictionaryStore, AKilledProcessLeavesAStoreThatOpens) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    const std::unique_ptr<Dictionary> oldDictionary = test::makeFilledDictionary(ResourceIDWidth::BITS_64, 10);
    const std::unique_ptr<Dictionary> newDictionary = test::makeFilledDictionary(ResourceIDWidth::BITS_64, 50);
    saveToFile(*oldDictionary, fileName);
    bool isNewInPlace = false;
    for (int killedAt = 1;; ++killedAt) {
        SCOPED_TRACE("killed at call " + std::to_string(killedAt));
        ASSERT_LT(killedAt, 1000);
        const bool isFinished = test::runKilledAtCall(killedAt, 3'000, [&] { saveToFile(*newDictionary, fileName); });
        const std::unique_ptr<Dictionary> opened = openFile(fileName);
        isNewInPlace |= opened->tryResolve("49", D_XSD_INTEGER) != 0;
        test::expectEqual(*opened, isNewInPlace ? *newDictionary : *oldDictionary);
        if (isFinished) {
            EXPECT_GT(killedAt, 80) << "moments spread over the save";
            break;
        }
    }
    EXPECT_TRUE(isNewInPlace);
}

TEST(DictionaryStore, OpeningReportsEveryFailureAndReleasesEverything) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    saveToFile(*test::makeFilledDictionary(ResourceIDWidth::BITS_32, 3000), fileName);
    for (const Call call : {Call::READ, Call::MMAP, Call::MPROTECT})
        EXPECT_GE(
            failEach(
                call,
                [&](FaultPoint& point) {
                    const Fault fault(point);
                    try {
                        const std::unique_ptr<Dictionary> dictionary = openFile(fileName, point.getNumber() % 2 == 0);
                        // The system's refusal to map a page is not a failure where a page is released.
                        EXPECT_EQ(test::findProblems(*dictionary), std::vector<std::string>());
                    }
                    catch (const SystemCallException& exception) {
                        EXPECT_TRUE(fault.wasHit());
                        EXPECT_EQ(exception.getErrorNumber(), ENOMEM);
                    }
                }),
            6u);
    // None fails under a sanitizer, which keeps its own operators.
    failEach(Call::ALLOCATION, [&](FaultPoint& point) {
        const Fault fault(point);
        try {
            openFile(fileName);
            EXPECT_FALSE(fault.wasHit());
        }
        catch (const std::bad_alloc&) {
            EXPECT_TRUE(fault.wasHit());
        }
    });
    EXPECT_EQ(test::findProblems(*openFile(fileName)), std::vector<std::string>());
}

// As many calls as the constructor makes: the arrays, the data pool, and a table for each datatype.
TEST(DictionaryStore, ABoundBeyondTheAddressSpaceIsNamed) {
    test::SampleStore sample(ResourceIDWidth::BITS_64);
    sample.setMaxResourceID(Dictionary::MAX_RESOURCE_ID_64);
    const std::string bytes = sample.toBytes();
    for (const uint64_t n : {1, 2, 3, 4, 17}) {
        SCOPED_TRACE("call " + std::to_string(n));
        const Fault fault(Call::MMAP, n);
        test::expectSystemCallError(
            "Engine/core/data-store/dictionary/DictionaryStore", 50, "mmap", ENOMEM,
            "The store cannot be opened: its maximum resource ID, 1099511627776, needs more address space than the "
            "system allows. Raise the limit of the process (ulimit -v), or repair the store, which then gets a lower "
            "maximum.",
            [&bytes] { test::openStore(bytes); });
        EXPECT_TRUE(fault.wasHit());
    }
}

TEST(DictionaryStore, ReadsMayBeShort) {
    const TemporaryFolder folder;
    const std::unique_ptr<Dictionary> dictionary = test::makeFilledDictionary(ResourceIDWidth::BITS_64, 300);
    for (const size_t maximumBytes : {1u, 7u, 4096u}) {
        const test::ShortTransfers shortTransfers(maximumBytes);
        if (maximumBytes == 1) {
            const test::ShortTransfers fewerWrites(4096);
            saveToFile(*dictionary, folder / "store");
        }
        test::expectEqual(*openFile(folder / "store"), *dictionary);
    }
}

}
