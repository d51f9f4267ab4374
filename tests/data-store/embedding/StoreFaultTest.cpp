// Saving and opening where every call in turn fails, or the process is killed.

#include "core/data-store/embedding/Dictionary.h"

#include "core/data-store/embedding/Restoration.h"
#include "core/data-store/embedding/Transaction.h"
#include "core/data-store/repair/DamagedStore.h"
#include "core/data-store/repair/StoreRepair.h"
#include "core/platform/errors/SystemCallException.h"
#include "core/platform/stream/FileInputStream.h"
#include "core/platform/stream/ReplacingFile.h"
#include "support/AllocationInjection.h"
#include "support/ExpectError.h"
#include "support/FileCallInjection.h"
#include "support/KilledProcess.h"
#include "support/SampleStore.h"
#include "support/SystemCallInjection.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace kavix {

using test::BOTH_WIDTHS;
using test::FileCall;
using test::FileCallFault;
using test::SystemCall;
using test::SystemCallFault;
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

/// Calls attempt(n) for n = 1, 2, ... until it returns false: no call was left to fail. Returns how many failed.
uint64_t failEach(const std::function<bool(uint64_t n)>& attempt) {
    uint64_t n = 1;
    while (attempt(n) && n < 10'000 && !::testing::Test::HasFatalFailure())
        ++n;
    return n - 1;
}

}

TEST(StoreFault, AStoreIsTheOldOneOrTheNewOneWhereverSavingFails) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    const std::unique_ptr<Dictionary> oldDictionary = makeDictionary(ResourceIDWidth::BITS_32, 10);
    const std::unique_ptr<Dictionary> newDictionary = makeDictionary(ResourceIDWidth::BITS_32, 100);
    const uint64_t oldEnd = oldDictionary->takeSnapshot().resourceIDEnd;
    const std::vector<std::string> oldResources = test::listResources(*oldDictionary, oldEnd);
    const std::vector<std::string> newResources = test::listResources(*newDictionary, oldEnd);
    saveToFile(*oldDictionary, fileName);
    const auto expectStore = [&](const std::vector<std::string>& resources) {
        EXPECT_EQ(test::listResources(*openFile(fileName), oldEnd), resources);
    };

    EXPECT_GE(
        failEach([&](uint64_t n) {
            const test::ShortTransfers shortTransfers(50'000);
            const SystemCallFault fault(SystemCall::WRITE, n, ENOSPC);
            if (n < 4) {
                EXPECT_THROW(saveToFile(*newDictionary, fileName), SystemCallException);
                expectStore(oldResources);
            }
            return fault.wasHit();
        }),
        3u);
    for (const FileCall fileCall :
         {FileCall::OPEN, FileCall::FLOCK, FileCall::FTRUNCATE, FileCall::FSYNC, FileCall::RENAME}) {
        const FileCallFault fault(fileCall, 1, EIO);
        EXPECT_THROW(saveToFile(*newDictionary, fileName), SystemCallException);
        EXPECT_TRUE(fault.wasHit());
        expectStore(oldResources);
    }
    saveToFile(*newDictionary, fileName);
    expectStore(newResources);
}

TEST(StoreFault, AKilledProcessLeavesAStoreThatOpens) {
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

TEST(StoreFault, OpeningReportsWhateverFailsAndReturnsEverything) {
    const TemporaryFolder folder;
    const std::string fileName = folder / "store";
    saveToFile(*makeDictionary(ResourceIDWidth::BITS_32, 3000), fileName);
    for (const SystemCall systemCall : {SystemCall::READ, SystemCall::MMAP, SystemCall::MPROTECT}) {
        SCOPED_TRACE("call " + std::to_string(static_cast<unsigned>(systemCall)));
        EXPECT_GE(
            failEach([&](uint64_t n) {
                const SystemCallFault fault(systemCall, n, ENOMEM);
                try {
                    const std::unique_ptr<Dictionary> dictionary = openFile(fileName, n % 2 == 0);
                    // The system's refusal to map a page is no failure where a page is given back.
                    EXPECT_EQ(test::findProblems(*dictionary), std::vector<std::string>());
                }
                catch (const SystemCallException& exception) {
                    EXPECT_TRUE(fault.wasHit());
                    EXPECT_EQ(exception.getErrorNumber(), ENOMEM);
                }
                return fault.wasHit();
            }),
            6u);
    }
    // None fails under a sanitizer, which keeps its own operators.
    failEach([&](uint64_t n) {
        const test::AllocationFault fault(n);
        try {
            openFile(fileName);
            EXPECT_FALSE(fault.wasHit());
        }
        catch (const std::bad_alloc&) {
            EXPECT_TRUE(fault.wasHit());
        }
        return fault.wasHit();
    });
    EXPECT_EQ(test::findProblems(*openFile(fileName)), std::vector<std::string>());
}

// As many calls as the constructor makes: the arrays, the data pool, and a table for each datatype.
TEST(StoreFault, ABoundBeyondTheAddressSpaceIsNamedAndLoweredByRepair) {
    test::SampleStore sample(ResourceIDWidth::BITS_64);
    sample.m_maxResourceID = sample.m_image.m_maxResourceID = Dictionary::MAX_RESOURCE_ID_64;
    sample.m_image.m_maxResourceIDForBlocks = Dictionary::MAX_RESOURCE_ID_64 - 1024;
    const std::string bytes = sample.toBytes();
    for (const uint64_t n : {1, 2, 3, 4, 17}) {
        SCOPED_TRACE("call " + std::to_string(n));
        const SystemCallFault fault(SystemCall::MMAP, n, ENOMEM);
        test::expectSystemCallError(
            "Engine/core/data-store/dictionary/DictionaryStore", 50, "mmap", ENOMEM,
            "The store cannot be opened: its maximum resource ID, 1099511627776, needs more address space than the "
            "system allows. Raise the limit of the process (ulimit -v), or repair the store, which then gets a lower "
            "maximum.",
            [&bytes] { test::openStore(bytes); });
        EXPECT_TRUE(fault.wasHit());
    }
    const DamagedStore store(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    const StoreRepair repair(store);
    const SystemCallFault fault(SystemCall::MMAP, 1, ENOMEM);
    const std::unique_ptr<Dictionary> repaired =
        repair.rebuild(uint64_t(1) << 30, false, [](std::string&& loss) { ADD_FAILURE() << loss; });
    EXPECT_TRUE(fault.wasHit());
    uint64_t counters[2];
    std::memcpy(
        counters, test::StoreImage::fromBytes(test::saveStore(*repaired))["counters"].m_bytes.data(), sizeof(counters));
    EXPECT_EQ(counters[1], Dictionary::MIN_MAX_RESOURCE_ID);
    EXPECT_EQ(
        test::listResources(*repaired, 7), (std::vector<std::string>{"1 0.5", "2 -2", "4 \"7\"^^xsd:int", "5 -12.25"}));
}

TEST(StoreFault, ReadsMayBeShort) {
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

TEST(StoreFault, ACompactionThatFailsLeavesTheStoreAsItWas) {
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
        for (const SystemCall systemCall : {SystemCall::MMAP, SystemCall::MPROTECT}) {
            uint64_t thrown = 0;
            failEach([&](uint64_t n) {
                SCOPED_TRACE("call " + std::to_string(n));
                const std::unique_ptr<Dictionary> dictionary = test::openStore(original);
                const uint64_t usedBytes = dictionary->getUsedBytes();
                bool hasThrown = false, wasHit;
                {
                    const SystemCallFault fault(systemCall, n, ENOMEM);
                    try {
                        dictionary->compact(isKept);
                    }
                    catch (const SystemCallException&) {
                        hasThrown = true;
                    }
                    wasHit = fault.wasHit();
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
                return wasHit;
            });
            EXPECT_GE(thrown, 2u) << "the entries and the new pool";
        }
        failEach([&](uint64_t n) {
            const std::unique_ptr<Dictionary> dictionary = test::openStore(original);
            const uint64_t usedBytes = dictionary->getUsedBytes();
            bool hasThrown = false;
            {
                const test::AllocationFault fault(n);
                try {
                    dictionary->compact(isKept);
                }
                catch (const std::bad_alloc&) {
                    hasThrown = true;
                }
            }
            if (hasThrown)
                expectAsBefore(*dictionary, usedBytes);
            return hasThrown;
        });
    }
}

TEST(StoreFault, ARestorationThatCannotBeginLeavesAnEmptyDictionary) {
    std::vector<uint64_t> counts(256, 5000);
    for (const SystemCall systemCall : {SystemCall::MMAP, SystemCall::MPROTECT})
        EXPECT_EQ(
            failEach([&](uint64_t n) {
                SCOPED_TRACE("call " + std::to_string(n));
                const std::unique_ptr<Dictionary> dictionary = makeDictionary(ResourceIDWidth::BITS_32, 0);
                const std::string original = test::saveStore(*dictionary);
                const uint64_t usedBytes = dictionary->getUsedBytes();
                std::unique_ptr<Restoration> restoration;
                bool hasThrown = false;
                {
                    const SystemCallFault fault(systemCall, n, ENOMEM);
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
                return hasThrown;
            }),
            14u)
            << "a call for each table";
}

}
