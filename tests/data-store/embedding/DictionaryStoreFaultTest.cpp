// Saving and opening where every call in turn fails, or the process is killed.

#include "core/data-store/embedding/Dictionary.h"

#include "core/data-store/embedding/Restoration.h"
#include "core/data-store/embedding/Transaction.h"
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

using test::BOTH_WIDTHS;
using test::Call;
using test::failEach;
using test::Fault;
using test::FaultPoint;
using test::TemporaryFolder;

namespace {

std::unique_ptr<Dictionary> makeDictionary(ResourceIDWidth width, int numberOfValues) {
    Dictionary::Options options;
    options.resourceIDWidth = width;
    options.maxResourceID = 1 << 20;
    auto dictionary = std::make_unique<Dictionary>(options);
    Transaction transaction(*dictionary);
    for (int i = 0; i < numberOfValues; ++i) {
        transaction.resolve(std::to_string(i), D_XSD_INTEGER);
        transaction.resolve(std::to_string(i) + ".5", D_XSD_DECIMAL);
    }
    transaction.commit();
    return dictionary;
}

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

TEST(DictionaryStore, AStoreIsTheOldOneOrTheNewOneWhereverSavingFails) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    const std::unique_ptr<Dictionary> oldDictionary = makeDictionary(ResourceIDWidth::BITS_32, 10);
    const std::unique_ptr<Dictionary> newDictionary = makeDictionary(ResourceIDWidth::BITS_32, 100);
    const uint64_t oldEnd = oldDictionary->takeSnapshot().first;
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
    const std::unique_ptr<Dictionary> oldDictionary = makeDictionary(ResourceIDWidth::BITS_64, 10);
    const std::unique_ptr<Dictionary> newDictionary = makeDictionary(ResourceIDWidth::BITS_64, 50);
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

TEST(DictionaryStore, OpeningReportsWhateverFailsAndReturnsEverything) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    saveToFile(*makeDictionary(ResourceIDWidth::BITS_32, 3000), fileName);
    for (const Call call : {Call::READ, Call::MMAP, Call::MPROTECT})
        EXPECT_GE(
            failEach(
                call,
                [&](FaultPoint& point) {
                    const Fault fault(point);
                    try {
                        const std::unique_ptr<Dictionary> dictionary = openFile(fileName, point.getNumber() % 2 == 0);
                        // The system's refusal to map a page is no failure where a page is given back.
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
            "The store cannot be opened: its bound of resource IDs, 1099511627776, takes more address space than the "
            "system grants. Raise the limit of the process (ulimit -v), or repair the store, which then gets a lower "
            "bound.",
            [&bytes] { test::openStore(bytes); });
        EXPECT_TRUE(fault.wasHit());
    }
}

TEST(DictionaryStore, ReadsMayBeShort) {
    const TemporaryFolder folder;
    const std::unique_ptr<Dictionary> dictionary = makeDictionary(ResourceIDWidth::BITS_64, 300);
    for (const size_t maximumBytes : {1u, 7u, 4096u}) {
        const test::ShortTransfers shortTransfers(maximumBytes);
        if (maximumBytes == 1) {
            const test::ShortTransfers fewerWrites(4096);
            saveToFile(*dictionary, folder / "store");
        }
        test::expectEqual(*openFile(folder / "store"), *dictionary);
    }
}

TEST(DictionaryStore, ACompactionThatFailsLeavesTheStoreAsItWas) {
    const auto isKept = [](uint64_t resourceID) { return resourceID % 3 == 1; };
    for (const ResourceIDWidth width : BOTH_WIDTHS) {
        const std::string original = test::saveStore(*makeDictionary(width, 3000));
        const std::unique_ptr<Dictionary> expected = test::openStore(original);
        expected->compact(isKept);
        const auto expectAsBefore = [&](Dictionary& dictionary, uint64_t usedBytes) {
            ASSERT_EQ(test::saveStore(dictionary), original);
            ASSERT_EQ(dictionary.getUsedBytes(), usedBytes);
            dictionary.compact(isKept);
            test::expectEqual(dictionary, *expected);
        };
        for (const Call call : {Call::MMAP, Call::MPROTECT}) {
            uint64_t thrown = 0;
            failEach(call, [&](FaultPoint& point) {
                const std::unique_ptr<Dictionary> dictionary = test::openStore(original);
                const uint64_t usedBytes = dictionary->getUsedBytes();
                bool hasThrown = false;
                {
                    const Fault fault(point);
                    try {
                        dictionary->compact(isKept);
                    }
                    catch (const SystemCallException&) {
                        hasThrown = true;
                    }
                }
                thrown += hasThrown;
                if (hasThrown)
                    expectAsBefore(*dictionary, usedBytes);
                else {
                    test::expectEqual(*dictionary, *expected);
                    // Pages that the system did not take back show nothing of what they held.
                    for (int i = 0; i < 3000; ++i)
                        dictionary->resolve(std::to_string(i), D_XSD_LONG);
                    Transaction transaction(*dictionary);
                    transaction.resolve("-1", D_XSD_LONG);
                    transaction.commit();
                    EXPECT_EQ(test::findProblems(*dictionary), std::vector<std::string>());
                    EXPECT_EQ(dictionary->countResourcesByDatatypeID()[D_XSD_LONG], 3001u);
                    EXPECT_EQ(
                        dictionary->countResourcesByDatatypeID()[D_XSD_DECIMAL],
                        expected->countResourcesByDatatypeID()[D_XSD_DECIMAL]);
                }
            });
            EXPECT_GE(thrown, 2u) << "the entries and the new pool";
        }
        failEach(Call::ALLOCATION, [&](FaultPoint& point) {
            const std::unique_ptr<Dictionary> dictionary = test::openStore(original);
            const uint64_t usedBytes = dictionary->getUsedBytes();
            bool hasThrown = false;
            {
                const Fault fault(point);
                try {
                    dictionary->compact(isKept);
                }
                catch (const std::bad_alloc&) {
                    hasThrown = true;
                }
            }
            ASSERT_EQ(point.wasHit(), hasThrown);
            if (hasThrown)
                expectAsBefore(*dictionary, usedBytes);
        });
    }
}

TEST(DictionaryStore, ARestorationThatCannotBeginLeavesAnEmptyDictionary) {
    std::vector<uint64_t> counts(256, 5000);
    for (const Call call : {Call::MMAP, Call::MPROTECT})
        EXPECT_EQ(
            failEach(
                call,
                [&](FaultPoint& point) {
                    const std::unique_ptr<Dictionary> dictionary = makeDictionary(ResourceIDWidth::BITS_32, 0);
                    const std::string original = test::saveStore(*dictionary);
                    const uint64_t usedBytes = dictionary->getUsedBytes();
                    std::unique_ptr<Restoration> restoration;
                    bool hasThrown = false;
                    {
                        const Fault fault(point);
                        try {
                            restoration = std::make_unique<Restoration>(*dictionary, counts);
                        }
                        catch (const SystemCallException&) {
                            hasThrown = true;
                        }
                    }
                    if (hasThrown) {
                        EXPECT_EQ(dictionary->getUsedBytes(), usedBytes);
                        EXPECT_EQ(test::saveStore(*dictionary), original);
                        EXPECT_EQ(dictionary->resolve("5", D_XSD_INT), 1u);
                    }
                    ASSERT_EQ(point.wasHit(), hasThrown);
                }),
            14u)
            << "a call for each table";
}

}
