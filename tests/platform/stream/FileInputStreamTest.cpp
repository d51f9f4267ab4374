#include "core/platform/stream/FileInputStream.h"

#include "core/platform/errors/KavixException.h"
#include "platform/stream/FileStreamFixtures.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <unistd.h>

namespace kavix::test {

namespace {

static_assert(BUFFER_SIZE == FileInputStream::BUFFER_SIZE);

class FileInputStreamTest : public FileStreamTest { };

TEST_F(FileInputStreamTest, FilesThatCannotBeOpenedAreNamed) {
    const std::string missing = m_folder / "missing";

    expectSystemCallException([&] { FileInputStream input(missing); }, "open", ENOENT, missing);
    expectSystemCallException([&] { FileInputStream input(""); }, "open", ENOENT, "");
}

TEST_F(FileInputStreamTest, ADirectoryCannotBeRead) {
    const std::string directory = m_folder.getPath();
    FileInputStream input(directory);
    char byte;
    const std::unique_ptr<char[]> buffer(new char[BUFFER_SIZE]);

    expectSystemCallException([&] { input.read(&byte, 1); }, "read", EISDIR, directory);
    expectSystemCallException([&] { input.read(buffer.get(), BUFFER_SIZE); }, "read", EISDIR, directory);
}

TEST_F(FileInputStreamTest, ReadsOfEverySizeReturnTheBytesInOrder) {
    const std::string content = makeContent(3 * BUFFER_SIZE + 1);
    const std::string fileName = m_folder / "file";
    writeFile(fileName, content);
    for (const size_t size :
         {size_t(4095), BUFFER_SIZE - 1, BUFFER_SIZE, BUFFER_SIZE + 1, 2 * BUFFER_SIZE, 10 * BUFFER_SIZE}) {
        SCOPED_TRACE(size);
        FileInputStream input(fileName);
        std::string contentRead;
        std::string piece(size, '\0');
        while (const size_t bytesRead = input.read(piece.data(), size)) {
            ASSERT_LE(bytesRead, size);
            contentRead.append(piece, 0, bytesRead);
        }
        EXPECT_TRUE(contentRead == content);
        EXPECT_EQ(input.read(piece.data(), size), 0u) << "the end stays the end";
    }
}

TEST_F(FileInputStreamTest, SmallAndLargeReadsMayAlternate) {
    const std::string content = makeContent(6 * BUFFER_SIZE);
    const std::string fileName = m_folder / "file";
    writeFile(fileName, content);
    FileInputStream input(fileName);
    size_t position = 0;
    for (const size_t size :
         {size_t(1), BUFFER_SIZE, size_t(0), size_t(8), 2 * BUFFER_SIZE, BUFFER_SIZE - 9, size_t(17), BUFFER_SIZE}) {
        std::string piece(size, '\0');
        readExactly(input, piece.data(), size);
        ASSERT_TRUE(piece == content.substr(position, size)) << position;
        position += size;
    }
}

TEST_F(FileInputStreamTest, AskingForNoBytesReadsNothing) {
    FileInputStream input(m_folder.getPath()); // any real read of a directory fails
    char byte;

    EXPECT_EQ(input.read(&byte, 0), 0u);
}

TEST_F(FileInputStreamTest, AFileThatEndsEarlyIsReported) {
    const std::string fileName = m_folder / "file";
    writeFile(fileName, "1234567");
    FileInputStream input(fileName);
    uint64_t number;
    try {
        readExactly(input, &number, sizeof(number));
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const KavixException& exception) {
        EXPECT_STREQ(exception.what(), "Premature end of file.");
    }
}

TEST_F(FileInputStreamTest, StartsAgainAfterRewinding) {
    const std::string content = makeContent(BUFFER_SIZE + 10);
    const std::string fileName = m_folder / "file";
    writeFile(fileName, content);
    FileInputStream input(fileName);
    for (const size_t bytesBeforeRewinding : {size_t(0), size_t(3), BUFFER_SIZE, content.size()}) {
        SCOPED_TRACE(bytesBeforeRewinding);
        std::string data(content.size(), '\0');
        readExactly(input, data.data(), bytesBeforeRewinding);
        input.rewind();
        readExactly(input, data.data(), data.size());
        EXPECT_TRUE(data == content);
        EXPECT_EQ(input.read(data.data(), 1), 0u);
        input.rewind();
    }
}

TEST_F(FileInputStreamTest, APipeIsReadInPiecesButCannotBeRewound) {
    Pipe pipe;
    FileInputStream input(pipe.getReadingName());
    char data[8] = {};
    ASSERT_EQ(::write(pipe.getWritingEnd(), "abc", 3), 3);
    EXPECT_EQ(input.read(data, 8), 3u) << "what has arrived, without waiting for more";
    ASSERT_EQ(::write(pipe.getWritingEnd(), "defgh", 5), 5);
    EXPECT_EQ(input.read(data + 3, 2), 2u);

    expectSystemCallException([&] { input.rewind(); }, "lseek", ESPIPE, pipe.getReadingName());

    pipe.closeWritingEnd();
    readExactly(input, data + 5, 3);
    EXPECT_EQ(std::string(data, 8), "abcdefgh") << "a failed rewind loses nothing";
    EXPECT_EQ(input.read(data, 1), 0u);
}

int s_writingEnd = -1;

TEST_F(FileInputStreamTest, InterruptedReadsAreRepeated) {
    const Pipe pipe;
    FileInputStream input(pipe.getReadingName());
    s_writingEnd = pipe.getWritingEnd();
    const Interruptions interruptions([] { static_cast<void>(!::write(s_writingEnd, "x", 1)); });
    char byte = 0;

    EXPECT_EQ(input.read(&byte, 1), 1u); // waits for the byte that the third interruption writes

    EXPECT_EQ(byte, 'x');
    EXPECT_GE(Interruptions::getNumberOfInterruptions(), 3);
}

TEST_F(FileInputStreamTest, ReleasesItsDescriptor) {
    writeFile(m_folder / "file", "abc");
    const size_t descriptorsBefore = countDescriptors();
    {
        const FileInputStream input(m_folder / "file");
        EXPECT_EQ(countDescriptors(), descriptorsBefore + 1);
    }
    EXPECT_EQ(countDescriptors(), descriptorsBefore);
}

}

}
