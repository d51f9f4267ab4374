#include "numdict/input/LineList.h"

#include "numdict/ProgramRunner.h"
#include "numdict/console/Failures.h"
#include "numdict/input/ReadingSupport.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <future>
#include <string>
#include <string_view>
#include <thread>

using namespace kavix::numdict;

TEST(LineList, LinesThatAreNotBlankComeWithTheirNumbers) {
    const std::string content = "one\r\n\n \t\r\n  two \nthree";
    TemporaryDirectory directory;
    for (const std::string& path : {directory.write("plain", content), directory.write("compressed", gzip(content))}) {
        SCOPED_TRACE(path);
        std::string lines;
        forEachLine("list", path, [&lines](std::string_view line, uint64_t number) {
            lines += std::to_string(number) + ":" + std::string(line) + "|";
        });
        EXPECT_EQ(lines, "1:one|4:  two |5:three|");
    }
}

// A person or a program that waits for the answer before it writes the next line must get it.
TEST(LineList, ALineIsDeliveredBeforeTheNextOneIsWritten) {
    TemporaryDirectory directory;
    const std::string path = directory.getPath("pipe");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    std::promise<void> firstLine;
    bool isDelivered = false;
    std::jthread writer([&path, &isDelivered, delivered = firstLine.get_future()] {
        std::ofstream pipe(path);
        pipe << "one\n" << std::flush;
        isDelivered = delivered.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
        pipe << "two\n";
    });
    std::string lines;
    forEachLine("list", path, [&](std::string_view line, uint64_t) {
        if (lines.empty())
            firstLine.set_value();
        lines += line;
    });
    writer.join();
    EXPECT_TRUE(isDelivered);
    EXPECT_EQ(lines, "onetwo");
}

TEST(LineList, WhatCannotBeReadIsAnError) {
    TemporaryDirectory directory;
    const auto ignore = [](std::string_view, uint64_t) {};
    EXPECT_THROW(forEachLine("list", directory.getPath("missing"), ignore), UsageError);
    EXPECT_THROW(forEachLine("list", directory.getPath(""), ignore), UsageError);
    const std::string compressed = gzip("one\n");
    const std::string cut = directory.write("cut", compressed.substr(0, compressed.size() - 3));
    EXPECT_THROW(forEachLine("list", cut, ignore), SystemFailure);
}
