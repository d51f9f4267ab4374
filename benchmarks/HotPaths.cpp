/// Runs one hot path for a tool that counts instructions: HotPaths NAME. Only the function of that name is counted.
///
/// Unlike times, counts are repeatable, so a change that makes a path longer is visible on any machine.

#include "core/data-store/numbers/IntegerText.h"
#include "core/data-store/numbers/XSDDecimal.h"
#include "support/Keys.h"
#include "support/Store.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace kavix;
using namespace kavix::benchmarks;

constexpr size_t NUMBER_OF_OPERATIONS = 10000;

volatile uint64_t s_result; // keeps the work from being optimised away

using Session = KavixSingle<int64_t>::Session;
using BatchSession = KavixBatched<int64_t>::Session;

}

// C names, so that callgrind finds them by --toggle-collect.
extern "C" {

[[gnu::noinline]] void hotPathResolve(Session& session, const std::vector<int64_t>& keys) {
    for (const int64_t& key : keys) {
        uint64_t resourceID;
        session.resolve(std::span(&key, 1), &resourceID);
        s_result = resourceID;
    }
}

[[gnu::noinline]] void hotPathTryResolve(Session& session, const std::vector<int64_t>& keys) {
    for (const int64_t& key : keys) {
        uint64_t resourceID;
        session.tryResolve(std::span(&key, 1), &resourceID);
        s_result = resourceID;
    }
}

[[gnu::noinline]] void hotPathResolveBatch(
    BatchSession& session, const std::vector<int64_t>& keys, std::vector<uint64_t>& resourceIDs) {
    session.resolve(keys, resourceIDs.data());
}

[[gnu::noinline]] void hotPathTryResolveBatch(
    BatchSession& session, const std::vector<int64_t>& keys, std::vector<uint64_t>& resourceIDs) {
    session.tryResolve(keys, resourceIDs.data());
}

[[gnu::noinline]] void hotPathParseInteger(const std::vector<std::string>& texts) {
    for (const std::string& text : texts)
        s_result = static_cast<uint64_t>(parseIntegerSigned(text.data(), text.size()).second);
}

[[gnu::noinline]] void hotPathParseDecimal(const std::vector<std::string>& texts) {
    XSDDecimal value;
    for (const std::string& text : texts) {
        XSDDecimal::tryParse(text.data(), text.size(), value);
        s_result = static_cast<uint64_t>(value.getUnscaledValue());
    }
}

[[gnu::noinline]] void hotPathPrint(const std::vector<int64_t>& keys, char* buffer) {
    for (const int64_t key : keys)
        s_result = appendNumber(static_cast<uint64_t>(key), buffer);
}
}

int main(int argc, char** argv) {
    const std::string name = argc == 2 ? argv[1] : "";
    const std::vector<int64_t> keys = makeKeys(NUMBER_OF_OPERATIONS, 0, makeRandomInteger);
    // Presized: growth is rare and would blur the cost of a new value.
    KavixSingle<int64_t> map(2 * NUMBER_OF_OPERATIONS, 2 * NUMBER_OF_OPERATIONS);
    Session session(map);
    std::vector<uint64_t> resourceIDs(NUMBER_OF_OPERATIONS);
    if (name == "resolve-new")
        hotPathResolve(session, keys);
    else if (name == "resolve-present") {
        session.resolve(keys, resourceIDs.data());
        hotPathResolve(session, keys);
    }
    else if (name == "try-resolve-absent") {
        session.resolve(keys, resourceIDs.data());
        hotPathTryResolve(session, makeKeys(NUMBER_OF_OPERATIONS, NUMBER_OF_OPERATIONS, makeRandomInteger));
    }
    else if (name == "batch-present" || name == "batch-new") {
        KavixBatched<int64_t> batchMap(2 * NUMBER_OF_OPERATIONS, 2 * NUMBER_OF_OPERATIONS);
        BatchSession batchSession(batchMap);
        if (name == "batch-present") {
            batchSession.resolve(keys, resourceIDs.data());
            hotPathTryResolveBatch(batchSession, keys, resourceIDs);
        }
        else
            hotPathResolveBatch(batchSession, keys, resourceIDs);
    }
    else if (name == "parse-integer" || name == "parse-decimal") {
        std::vector<std::string> texts;
        for (size_t index = 0; index < NUMBER_OF_OPERATIONS; ++index) {
            // One to eighteen digits, equally often.
            std::string text = std::to_string(static_cast<uint64_t>(keys[index]) % 1000000000000000000u);
            text.resize(std::min(text.size(), 1 + index % 18));
            if (name == "parse-decimal")
                text.insert(text.size() / 2, 1, '.');
            texts.push_back(std::move(text));
        }
        if (name == "parse-integer")
            hotPathParseInteger(texts);
        else
            hotPathParseDecimal(texts);
    }
    else if (name == "print") {
        std::vector<int64_t> numbers(keys);
        for (size_t index = 0; index < numbers.size(); ++index)
            numbers[index] = static_cast<int64_t>(static_cast<uint64_t>(keys[index]) >> (1 + index % 63));
        char buffer[24];
        hotPathPrint(numbers, buffer);
    }
    else {
        std::fputs(
            "usage: HotPaths "
            "resolve-present|resolve-new|try-resolve-absent|batch-present|batch-new|parse-integer|parse-decimal|"
            "print\n",
            stderr);
        return 2;
    }
    return 0;
}
