#include "core/platform/stream/FileInputStream.h"
#include "core/platform/stream/FileOutputStream.h"

#include "core/platform/errors/KavixException.h"
#include "core/platform/errors/SystemCallException.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

namespace kavix {
namespace {

constexpr size_t BUFFER_SIZE = FileOutputStream::BUFFER_SIZE;
static_assert(BUFFER_SIZE == FileInputStream::BUFFER_SIZE);

/// A directory of its own for each test.
class FileStream : public testing::Test {

protected:

    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "kavix-stream-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        m_directory = pattern;
    }

    void TearDown() override { std::filesystem::remove_all(m_directory); }

    std::string getPath(const std::string& name) const { return (m_directory / name).string(); }

    static std::string readFile(const std::string& fileName) {
        std::ifstream stream(fileName, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }

    static void writeFile(const std::string& fileName, const std::string& content) {
        std::ofstream stream(fileName, std::ios::binary);
        stream.write(content.data(), static_cast<std::streamsize>(content.size()));
    }

    /// Bytes that differ from their neighbours, so that any that are lost, doubled or swapped are noticed.
    static std::string makeContent(size_t numberOfBytes, uint32_t seed = 1) {
        std::mt19937 generator(seed);
        std::string content(numberOfBytes, '\0');
        std::generate(content.begin(), content.end(), [&generator] { return static_cast<char>(generator()); });
        return content;
    }

    std::filesystem::path m_directory;
};

void expectSystemCallException(
    const std::function<void()>& operation, const std::string& systemCall, int errorNumber,
    const std::string& fileName) {
    try {
        operation();
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const SystemCallException& exception) {
        EXPECT_EQ(exception.getSystemCall(), systemCall);
        EXPECT_EQ(exception.getErrorNumber(), errorNumber);
        EXPECT_NE(exception.getMessage().find("'" + fileName + "'"), std::string::npos) << exception.getMessage();
    }
}

/// A pipe whose ends are named like files; both ends are opened again by the streams under test.
class Pipe {

public:

    Pipe() { EXPECT_EQ(::pipe2(m_fileDescriptors, O_CLOEXEC), 0); }

    ~Pipe() {
        closeWritingEnd();
        ::close(m_fileDescriptors[0]);
    }

    Pipe(const Pipe&) = delete;

    Pipe& operator=(const Pipe&) = delete;

    int getReadingEnd() const { return m_fileDescriptors[0]; }

    int getWritingEnd() const { return m_fileDescriptors[1]; }

    std::string getReadingName() const { return "/dev/fd/" + std::to_string(m_fileDescriptors[0]); }

    std::string getWritingName() const { return "/dev/fd/" + std::to_string(m_fileDescriptors[1]); }

    void closeWritingEnd() {
        if (m_fileDescriptors[1] >= 0)
            ::close(m_fileDescriptors[1]);
        m_fileDescriptors[1] = -1;
    }

private:

    int m_fileDescriptors[2] = {-1, -1};
};

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

/// Interrupts system calls every millisecond; the third interruption runs an action, which must be safe in a signal
/// handler. One at a time.
class Interruptions {

public:

    explicit Interruptions(void (*action)()) {
        s_action = action;
        s_numberOfInterruptions = 0;
        struct sigaction handling = {};
        handling.sa_handler = &onInterruption; // without SA_RESTART: calls fail with EINTR
        EXPECT_EQ(::sigaction(SIGALRM, &handling, &m_previousHandling), 0);
        const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
        EXPECT_EQ(::setitimer(ITIMER_REAL, &everyMillisecond, nullptr), 0);
    }

    ~Interruptions() {
        const itimerval never{};
        ::setitimer(ITIMER_REAL, &never, nullptr);
        ::sigaction(SIGALRM, &m_previousHandling, nullptr);
    }

    Interruptions(const Interruptions&) = delete;

    Interruptions& operator=(const Interruptions&) = delete;

    static int getNumberOfInterruptions() { return s_numberOfInterruptions; }

private:

    static void onInterruption(int) {
        const int previousError = errno;
        s_numberOfInterruptions = s_numberOfInterruptions + 1;
        if (s_numberOfInterruptions == 3)
            s_action();
        errno = previousError;
    }

    static inline void (*s_action)() = nullptr;
    static inline volatile std::sig_atomic_t s_numberOfInterruptions = 0;

    struct sigaction m_previousHandling = {};
};

TEST_F(FileStream, WritesOfEverySizeArriveCompleteAndInOrder) {
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
        const std::string fileName = getPath(std::to_string(row));
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

TEST_F(FileStream, ManySmallWritesArriveCompleteAndInOrder) {
    const std::string content = makeContent(4 * BUFFER_SIZE + 123);
    const std::string fileName = getPath("file");
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

TEST_F(FileStream, SmallWritesStayInTheBufferUntilTheyAreFlushed) {
    const std::string fileName = getPath("file");
    FileOutputStream output(fileName);
    output.write("abc", 3);
    EXPECT_EQ(readFile(fileName), "");
    output.flush();
    EXPECT_EQ(readFile(fileName), "abc");
    output.flush();
    EXPECT_EQ(readFile(fileName), "abc") << "nothing is written twice";
}

TEST_F(FileStream, LargeWritesPassTheBuffer) {
    const std::string fileName = getPath("file");
    const std::string content = makeContent(BUFFER_SIZE);
    FileOutputStream output(fileName);
    output.write("abc", 3);
    output.write(content.data(), content.size());

    EXPECT_TRUE(readFile(fileName) == "abc" + content) << "after what was in the buffer, and without a flush";
}

TEST_F(FileStream, OpeningForWritingEmptiesTheFile) {
    const std::string fileName = getPath("file");
    writeFile(fileName, "a longer content");
    FileOutputStream output(fileName);
    output.write("abc", 3);
    output.close();

    EXPECT_EQ(readFile(fileName), "abc");
}

TEST_F(FileStream, ClosingTwiceIsClosingOnce) {
    FileOutputStream output(getPath("file"));
    EXPECT_TRUE(output.isOpen());
    output.close();
    EXPECT_FALSE(output.isOpen());
    EXPECT_NO_THROW(output.close());
}

TEST_F(FileStream, TheDestructorWritesTheRest) {
    const std::string fileName = getPath("file");
    { FileOutputStream(fileName).write("abc", 3); }

    EXPECT_EQ(readFile(fileName), "abc");
}

TEST_F(FileStream, FilesThatCannotBeOpenedAreNamed) {
    const std::string missing = getPath("missing");
    const std::string inMissingDirectory = getPath("missing/file");
    const std::string directory = m_directory.string();

    expectSystemCallException([&] { FileInputStream input(missing); }, "open", ENOENT, missing);
    expectSystemCallException([&] { FileInputStream input(""); }, "open", ENOENT, "");
    expectSystemCallException([&] { FileOutputStream output(inMissingDirectory); }, "open", ENOENT, inMissingDirectory);
    expectSystemCallException([&] { FileOutputStream output(directory); }, "open", EISDIR, directory);
}

TEST_F(FileStream, ADirectoryCannotBeRead) {
    const std::string directory = m_directory.string();
    FileInputStream input(directory);
    char byte;
    const std::unique_ptr<char[]> buffer(new char[BUFFER_SIZE]);

    expectSystemCallException([&] { input.read(&byte, 1); }, "read", EISDIR, directory);
    expectSystemCallException([&] { input.read(buffer.get(), BUFFER_SIZE); }, "read", EISDIR, directory);
}

TEST_F(FileStream, AFullDeviceIsReportedByWhateverReachesIt) {
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

TEST_F(FileStream, ShortLargeWritesAreContinuedUntilTheSystemRefuses) {
    const std::string fileName = getPath("file");
    const std::string content = makeContent(3 * BUFFER_SIZE);
    const size_t limit = 2 * BUFFER_SIZE + 5;
    const FileSizeLimit fileSizeLimit(limit);
    FileOutputStream output(fileName);

    expectSystemCallException([&] { output.write(content.data(), content.size()); }, "write", EFBIG, fileName);
    EXPECT_TRUE(readFile(fileName) == content.substr(0, limit));
}

TEST_F(FileStream, AFailedFlushIsContinuedWhereItStopped) {
    const std::string fileName = getPath("file");
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

TEST_F(FileStream, ReadsOfEverySizeReturnTheBytesInOrder) {
    const std::string content = makeContent(3 * BUFFER_SIZE + 1);
    const std::string fileName = getPath("file");
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

TEST_F(FileStream, SmallAndLargeReadsMayAlternate) {
    const std::string content = makeContent(6 * BUFFER_SIZE);
    const std::string fileName = getPath("file");
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

TEST_F(FileStream, AskingForNoBytesReadsNothing) {
    FileInputStream input(m_directory.string()); // any real read of a directory fails
    char byte;

    EXPECT_EQ(input.read(&byte, 0), 0u);
}

TEST_F(FileStream, AFileThatEndsEarlyIsReported) {
    const std::string fileName = getPath("file");
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

TEST_F(FileStream, StartsAgainAfterRewinding) {
    const std::string content = makeContent(BUFFER_SIZE + 10);
    const std::string fileName = getPath("file");
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

TEST_F(FileStream, APipeIsReadInPiecesButCannotBeRewound) {
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

TEST_F(FileStream, InterruptedReadsAreRepeated) {
    const Pipe pipe;
    FileInputStream input(pipe.getReadingName());
    s_writingEnd = pipe.getWritingEnd();
    const Interruptions interruptions([] { static_cast<void>(!::write(s_writingEnd, "x", 1)); });
    char byte = 0;

    EXPECT_EQ(input.read(&byte, 1), 1u); // waits for the byte that the third interruption writes

    EXPECT_EQ(byte, 'x');
    EXPECT_GE(Interruptions::getNumberOfInterruptions(), 3);
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

TEST_F(FileStream, InterruptedSmallWritesAreRepeated) {
    const std::string content = makeContent(BUFFER_SIZE + 4096);
    expectInterruptedWritesAreRepeated(content, [&content](FileOutputStream& output) {
        output.write(content.data(), BUFFER_SIZE);
        output.write(content.data() + BUFFER_SIZE, 4096); // stays in the buffer until close()
    });
}

TEST_F(FileStream, AnInterruptedLargeWriteIsContinuedWhereItStopped) {
    const std::string content = makeContent(2 * BUFFER_SIZE);
    expectInterruptedWritesAreRepeated(content, [&content](FileOutputStream& output) {
        output.write(content.data(), content.size()); // the first part fills the pipe
    });
}

TEST_F(FileStream, StreamsGiveTheirDescriptorsBack) {
    const std::string fileName = getPath("file");
    const auto countDescriptors = [] {
        return std::distance(
            std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
    };
    const auto descriptorsBefore = countDescriptors();
    {
        FileOutputStream closedByHand(fileName);
        closedByHand.close();
        const FileOutputStream closedByDestructor(fileName);
        const FileInputStream input(fileName);
        EXPECT_EQ(countDescriptors(), descriptorsBefore + 2);
    }
    EXPECT_EQ(countDescriptors(), descriptorsBefore);
}

}
}
