#include "core/platform/stream/FileOutputStream.h"

#include "platform/stream/FileStreamFixtures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <random>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace kavix::test {

namespace {

class FileOutputStreamTest : public FileStreamTest { };

/// Lets files grow to a number of bytes only: the write that reaches the limit is short, the next one fails.
class FileSizeLimit {

public:

    explicit FileSizeLimit(size_t numberOfBytes) :
        m_previousHandler(std::signal(SIGXFSZ, SIG_IGN)) {
        EXPECT_EQ(::getrlimit(RLIMIT_FSIZE, &m_previous), 0);
        rlimit limit = m_previous;
        limit.rlim_cur = numberOfBytes;
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    }

    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &m_previous);
        std::signal(SIGXFSZ, m_previousHandler);
    }

    FileSizeLimit(const FileSizeLimit&) = delete;

    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:

    rlimit m_previous{};
    void (*m_previousHandler)(int);
};

TEST_F(FileOutputStreamTest, WritesOfEverySizeArriveCompleteAndInOrder) {
    const std::vector<std::vector<size_t>> sizesOfWrites = {
        {},
        {0},
        {1},
        {BUFFER_SIZE - 1},
        {BUFFER_SIZE},
        {BUFFER_SIZE + 1},
        {BUFFER_SIZE - 1, 1, 1},
        {BUFFER_SIZE - 1, 2},
        {1, BUFFER_SIZE - 1, 1},
        {1, BUFFER_SIZE},
        {BUFFER_SIZE, 1, BUFFER_SIZE},
        {10, 3 * BUFFER_SIZE + 7, 10, 0, BUFFER_SIZE / 2, BUFFER_SIZE / 2, BUFFER_SIZE / 2},
    };
    for (size_t row = 0; row != sizesOfWrites.size(); ++row) {
        SCOPED_TRACE(row);
        const std::string content = makeContent(5 * BUFFER_SIZE);
        const std::string fileName = m_folder / std::to_string(row);
        size_t position = 0;
        FileOutputStream output(fileName);
        for (const size_t size : sizesOfWrites[row]) {
            output.write(content.data() + position, size);
            position += size;
        }
        output.close();

        EXPECT_TRUE(readFile(fileName) == content.substr(0, position));
    }
}

TEST_F(FileOutputStreamTest, ManySmallWritesArriveCompleteAndInOrder) {
    const std::string content = makeContent(4 * BUFFER_SIZE + 123);
    const std::string fileName = m_folder / "file";
    std::mt19937 generator(7);
    std::uniform_int_distribution<size_t> sizes(0, 5000);
    FileOutputStream output(fileName);
    for (size_t position = 0; position != content.size();) {
        const size_t size = std::min(sizes(generator), content.size() - position);
        output.write(content.data() + position, size);
        position += size;
    }
    output.close();

    EXPECT_TRUE(readFile(fileName) == content);
}

TEST_F(FileOutputStreamTest, SmallWritesStayInTheBufferUntilTheyAreFlushed) {
    const std::string fileName = m_folder / "file";
    FileOutputStream output(fileName);
    output.write("abc", 3);
    EXPECT_EQ(readFile(fileName), "");
    output.flush();
    EXPECT_EQ(readFile(fileName), "abc");
    output.flush();
    EXPECT_EQ(readFile(fileName), "abc") << "nothing is written twice";
}

TEST_F(FileOutputStreamTest, LargeWritesPassTheBuffer) {
    const std::string fileName = m_folder / "file";
    const std::string content = makeContent(BUFFER_SIZE);
    FileOutputStream output(fileName);
    output.write("abc", 3);
    output.write(content.data(), content.size());

    EXPECT_TRUE(readFile(fileName) == "abc" + content) << "after what was in the buffer, and without a flush";
}

TEST_F(FileOutputStreamTest, OpeningForWritingEmptiesTheFile) {
    const std::string fileName = m_folder / "file";
    writeFile(fileName, "a longer content");
    FileOutputStream output(fileName);
    output.write("abc", 3);
    output.close();

    EXPECT_EQ(readFile(fileName), "abc");
}

TEST_F(FileOutputStreamTest, ClosingTwiceIsClosingOnce) {
    FileOutputStream output(m_folder / "file");
    EXPECT_TRUE(output.isOpen());
    output.close();
    EXPECT_FALSE(output.isOpen());
    EXPECT_NO_THROW(output.close());
}

TEST_F(FileOutputStreamTest, TheDestructorWritesTheRest) {
    const std::string fileName = m_folder / "file";
    { FileOutputStream(fileName).write("abc", 3); }

    EXPECT_EQ(readFile(fileName), "abc");
}

TEST_F(FileOutputStreamTest, FilesThatCannotBeOpenedAreNamed) {
    const std::string inMissingFolder = m_folder / "missing/file";
    const std::string folder = m_folder.getPath();

    expectSystemCallException([&] { FileOutputStream output(inMissingFolder); }, "open", ENOENT, inMissingFolder);
    expectSystemCallException([&] { FileOutputStream output(folder); }, "open", EISDIR, folder);
}

TEST_F(FileOutputStreamTest, AFullDeviceIsReportedByEveryOperationThatReachesIt) {
    const std::string device = "/dev/full";
    const std::string content = makeContent(BUFFER_SIZE);
    {
        FileOutputStream output(device);
        output.write("abc", 3);
        expectSystemCallException([&] { output.flush(); }, "write", ENOSPC, device);
        expectSystemCallException([&] { output.close(); }, "write", ENOSPC, device);
        EXPECT_TRUE(output.isOpen());
    } // the destructor fails to write and keeps it to itself
    {
        FileOutputStream output(device);
        expectSystemCallException([&] { output.write(content.data(), content.size()); }, "write", ENOSPC, device);
        EXPECT_NO_THROW(output.close()) << "nothing is left to write";
    }
    {
        FileOutputStream output(device);
        output.write(content.data(), content.size() - 1);
        expectSystemCallException([&] { output.write("ab", 2); }, "write", ENOSPC, device);
    }
}

TEST_F(FileOutputStreamTest, ShortLargeWritesAreContinuedUntilTheSystemRefuses) {
    const std::string fileName = m_folder / "file";
    const std::string content = makeContent(3 * BUFFER_SIZE);
    const size_t limit = 2 * BUFFER_SIZE + 5;
    const FileSizeLimit fileSizeLimit(limit);
    FileOutputStream output(fileName);

    expectSystemCallException([&] { output.write(content.data(), content.size()); }, "write", EFBIG, fileName);
    EXPECT_TRUE(readFile(fileName) == content.substr(0, limit));
}

TEST_F(FileOutputStreamTest, AFailedFlushIsContinuedWhereItStopped) {
    const std::string fileName = m_folder / "file";
    const std::string content = makeContent(1000);
    FileOutputStream output(fileName);
    {
        const FileSizeLimit fileSizeLimit(300);
        output.write(content.data(), 900);
        expectSystemCallException([&] { output.flush(); }, "write", EFBIG, fileName);
        EXPECT_TRUE(readFile(fileName) == content.substr(0, 300));
        expectSystemCallException([&] { output.close(); }, "write", EFBIG, fileName);
        output.write(content.data() + 900, 100);
    }
    output.close();

    EXPECT_TRUE(readFile(fileName) == content);
}

int s_readingEnd = -1;
char s_drainedBytes[2 * BUFFER_SIZE];
volatile std::sig_atomic_t s_numberOfDrainedBytes = 0;

/// Writes more than a pipe holds. The third interruption of the waiting writer empties the pipe; then the rest fits.
void expectInterruptedWritesAreRepeated(
    const std::string& content, const std::function<void(FileOutputStream&)>& write) {
    const Pipe pipe;
    constexpr int PIPE_SIZE = static_cast<int>(BUFFER_SIZE);
    ASSERT_EQ(::fcntl(pipe.getWritingEnd(), F_SETPIPE_SZ, PIPE_SIZE), PIPE_SIZE);
    s_readingEnd = pipe.getReadingEnd();
    s_numberOfDrainedBytes = 0;
    {
        FileOutputStream output(pipe.getWritingName());
        const Interruptions interruptions([] {
            s_numberOfDrainedBytes = static_cast<std::sig_atomic_t>(::read(s_readingEnd, s_drainedBytes, BUFFER_SIZE));
        });
        write(output);
        output.close();
        EXPECT_GE(Interruptions::getNumberOfInterruptions(), 3);
    }
    ASSERT_EQ(s_numberOfDrainedBytes, PIPE_SIZE);
    ASSERT_EQ(
        ::read(pipe.getReadingEnd(), s_drainedBytes + BUFFER_SIZE, BUFFER_SIZE),
        static_cast<ssize_t>(content.size() - BUFFER_SIZE));
    EXPECT_TRUE(std::string(s_drainedBytes, content.size()) == content);
}

TEST_F(FileOutputStreamTest, InterruptedSmallWritesAreRepeated) {
    const std::string content = makeContent(BUFFER_SIZE + 4096);
    expectInterruptedWritesAreRepeated(content, [&content](FileOutputStream& output) {
        output.write(content.data(), BUFFER_SIZE);
        output.write(content.data() + BUFFER_SIZE, 4096); // stays in the buffer until close()
    });
}

TEST_F(FileOutputStreamTest, AnInterruptedLargeWriteIsContinuedWhereItStopped) {
    const std::string content = makeContent(2 * BUFFER_SIZE);
    expectInterruptedWritesAreRepeated(content, [&content](FileOutputStream& output) {
        output.write(content.data(), content.size()); // the first part fills the pipe
    });
}

TEST_F(FileOutputStreamTest, ReleasesItsDescriptor) {
    const size_t descriptorsBefore = countDescriptors();
    {
        FileOutputStream closedByHand(m_folder / "file");
        closedByHand.close();
        const FileOutputStream closedByDestructor(m_folder / "file");
        EXPECT_EQ(countDescriptors(), descriptorsBefore + 1);
    }
    EXPECT_EQ(countDescriptors(), descriptorsBefore);
}

TEST_F(FileOutputStreamTest, AnAdoptedDescriptorIsWrittenAtItsPositionAndClosed) {
    const int fileDescriptor = ::open((m_folder / "file").c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_GE(fileDescriptor, 0);
    ASSERT_EQ(::write(fileDescriptor, "before ", 7), 7);
    {
        FileOutputStream output(m_folder / "file", fileDescriptor);
        EXPECT_TRUE(output.isOpen());
        EXPECT_EQ(output.getFileName(), m_folder / "file");
        output.write("after", 5);
        EXPECT_EQ(readFile(m_folder / "file"), "before ") << "in the buffer";
        output.synchronise();
        EXPECT_EQ(readFile(m_folder / "file"), "before after");
    }
    EXPECT_EQ(::fcntl(fileDescriptor, F_GETFD), -1) << "closed";
}

}

}
