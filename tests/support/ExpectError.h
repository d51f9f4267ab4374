#pragma once

#include "core/platform/errors/KavixException.h"
#include "core/platform/errors/SystemCallException.h"

#include <gtest/gtest.h>

#include <string>

namespace kavix::test {

/// Runs an action and expects a KavixException that is not a SystemCallException, with exactly this source file, line
/// and message.
template<typename Action>
void expectError(const std::string& sourceFile, long line, const std::string& message, Action action) {
    try {
        action();
        ADD_FAILURE() << "nothing was thrown instead of: " << message;
    }
    catch (const KavixException& exception) {
        EXPECT_EQ(exception.what(), message);
        EXPECT_EQ(exception.getSourceFile(), sourceFile);
        EXPECT_EQ(exception.getLine(), line);
        EXPECT_EQ(exception.getClassName(), "KavixException");
        EXPECT_TRUE(exception.getCauses().empty());
    }
}

/// Runs an action and expects a SystemCallException of this call and error number, whose message begins as given; the
/// rest of the message is the system's.
template<typename Action>
void expectSystemCallError(
    const std::string& sourceFile, long line, const std::string& systemCall, int errorNumber,
    const std::string& messageStart, Action action) {
    try {
        action();
        ADD_FAILURE() << "nothing was thrown instead of: " << messageStart;
    }
    catch (const SystemCallException& exception) {
        EXPECT_EQ(std::string(exception.what()).substr(0, messageStart.size()), messageStart);
        EXPECT_EQ(exception.getSourceFile(), sourceFile);
        EXPECT_EQ(exception.getLine(), line);
        EXPECT_EQ(exception.getSystemCall(), systemCall);
        EXPECT_EQ(exception.getErrorNumber(), errorNumber);
        EXPECT_EQ(exception.getClassName(), "SystemCallException");
    }
}

/// The error of a budget with totalBytes of which freeBytes are free, asked for requestedBytes.
template<typename Action>
void expectOutOfMemory(size_t totalBytes, size_t freeBytes, size_t requestedBytes, Action action) {
    expectError(
        "Engine/core/platform/system/MemoryManager", 71,
        "The Kavix instance has run out of memory.\n[Extended information: " + std::to_string(totalBytes) +
            " bytes were reserved for the system, of which " + std::to_string(freeBytes) +
            " were free when an attempt to allocate " + std::to_string(requestedBytes) + " bytes was made.]",
        action);
}

}
