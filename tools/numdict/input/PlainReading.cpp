#include "numdict/input/PlainReading.h"

#include "numdict/console/WorkerThreads.h"
#include "numdict/input/ByteSource.h"
#include "numdict/input/LineBlocks.h"
#include "numdict/input/SerdHandles.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <numeric>
#include <system_error>

namespace kavix::numdict {

namespace {

/// The parser keeps the terms of what it has read until it is freed; after this many bytes that costs more than it
/// saves.
constexpr size_t PIECE_SIZE = 64 * 1024;

constexpr size_t PAGE_SIZE = 64 * 1024;

SerdStatus ignoreError(void*, const SerdError*) {
    return SERD_SUCCESS;
}

SerdStatus countStatement(
    void* handle, SerdStatementFlags, const SerdNode*, const SerdNode*, const SerdNode*, const SerdNode*,
    const SerdNode*, const SerdNode*) {
    ++*static_cast<uint64_t*>(handle);
    return SERD_SUCCESS;
}

SerdReaderPointer makeReader(SerdSyntax syntax, uint64_t& statements) {
    SerdReaderPointer reader(serd_reader_new(syntax, &statements, nullptr, nullptr, nullptr, countStatement, nullptr));
    if (!reader)
        throw std::bad_alloc();
    serd_reader_set_strict(reader.get(), true);
    serd_reader_set_error_sink(reader.get(), ignoreError, nullptr);
    return reader;
}

/// Reads the text up to end, where it puts a NUL; returns whether it is well formed, and adds its statements if it is.
bool readText(char* text, char* end, uint64_t& statements) {
    uint64_t statementsOfText = 0;
    const SerdReaderPointer reader = makeReader(SERD_NQUADS, statementsOfText);
    const char byteAtEnd = *end;
    *end = '\0';
    const bool isGood = serd_reader_read_string(reader.get(), reinterpret_cast<const uint8_t*>(text)) == SERD_SUCCESS;
    *end = byteAtEnd;
    if (isGood)
        statements += statementsOfText;
    return isGood;
}

void readBlock(LineBlock& block, uint64_t& statements) {
    char* piece = block.m_bytes.data();
    char* const blockEnd = piece + block.m_length;
    for (char* pieceEnd; piece != blockEnd; piece = pieceEnd) {
        pieceEnd = std::min(blockEnd, piece + std::min(PIECE_SIZE, static_cast<size_t>(blockEnd - piece)));
        if (pieceEnd != blockEnd) {
            pieceEnd = std::find(pieceEnd - 1, blockEnd, '\n');
            pieceEnd += pieceEnd != blockEnd;
        }
        if (readText(piece, pieceEnd, statements))
            continue;
        for (char *line = piece, *lineEnd; line != pieceEnd; line = lineEnd) {
            lineEnd = std::find(line, pieceEnd, '\n');
            lineEnd += lineEnd != pieceEnd;
            readText(line, lineEnd, statements);
        }
    }
}

/// What the parser's calls for more bytes need. An exception must not pass through the parser, which is written in C.
struct TurtleInput {
    ByteSource& m_source;
    std::exception_ptr m_failure;
};

size_t readPage(void* buffer, size_t, size_t size, void* handle) {
    TurtleInput& input = *static_cast<TurtleInput*>(handle);
    size_t length = 0;
    try {
        while (length != size) {
            const size_t count = input.m_source.read(static_cast<char*>(buffer) + length, size - length);
            if (count == 0)
                break;
            length += count;
        }
    }
    catch (...) {
        input.m_failure = std::current_exception();
    }
    return length;
}

int hasFailed(void* handle) {
    return static_cast<TurtleInput*>(handle)->m_failure ? 1 : 0;
}

void readTurtle(const InputFile& file, uint64_t& statements) {
    std::atomic<uint64_t> fileBytesRead{0};
    ByteSource source(file.m_path, fileBytesRead);
    TurtleInput input{source, nullptr};
    const SerdReaderPointer reader = makeReader(file.m_format == RDFFormat::TRIG ? SERD_TRIG : SERD_TURTLE, statements);
    serd_reader_read_source(reader.get(), readPage, hasFailed, &input, nullptr, PAGE_SIZE);
    if (input.m_failure)
        std::rethrow_exception(input.m_failure);
}

uint64_t getSize(const InputFile& file) {
    std::error_code error;
    const uintmax_t size = std::filesystem::file_size(file.m_path, error);
    return error ? 0 : size;
}

}

uint64_t readPlainly(const std::vector<InputFile>& files, unsigned numberOfThreads) {
    std::vector<size_t> order(files.size());
    std::iota(order.begin(), order.end(), size_t(0));
    std::stable_sort(order.begin(), order.end(), [&](size_t first, size_t second) {
        return getSize(files[first]) > getSize(files[second]);
    });
    std::atomic<uint64_t> fileBytesRead{0};
    std::vector<std::unique_ptr<LineBlocks>> lineFiles(files.size()); // in the same order; opened by the first reader
    for (size_t index = 0; index < files.size(); ++index)
        if (isLineFormat(files[order[index]].m_format))
            lineFiles[index] = std::make_unique<LineBlocks>(files[order[index]].m_path, fileBytesRead);
    std::atomic<size_t> nextFile{0};
    std::atomic<uint64_t> statements{0};
    runOnThreads(numberOfThreads, [&](unsigned) {
        uint64_t ownStatements = 0;
        LineBlock block;
        const auto readBlocks = [&](LineBlocks& blocks) {
            while (blocks.mayHaveMore() && blocks.next(block))
                readBlock(block, ownStatements);
        };
        // Relaxed, as below: it only hands out numbers; the files are fixed, and the end of the threads publishes the
        // sum.
        for (size_t index; (index = nextFile.fetch_add(1, std::memory_order_relaxed)) < files.size();)
            if (lineFiles[index])
                readBlocks(*lineFiles[index]);
            else
                readTurtle(files[order[index]], ownStatements);
        for (const std::unique_ptr<LineBlocks>& blocks : lineFiles)
            if (blocks)
                readBlocks(*blocks);
        statements.fetch_add(ownStatements, std::memory_order_relaxed);
    });
    return statements.load(std::memory_order_relaxed);
}

}
