#pragma once

#include "numdict/console/Failures.h"
#include "numdict/input/LineBlocks.h"
#include "numdict/input/LineReader.h"
#include "numdict/input/Statement.h"

#include <zlib.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace kavix::numdict {

inline std::string gzip(const std::string& text) {
    z_stream stream{};
    constexpr int GZIP_ONLY = 16;
    deflateInit2(&stream, 6, Z_DEFLATED, MAX_WBITS + GZIP_ONLY, 8, Z_DEFAULT_STRATEGY);
    std::string compressed(deflateBound(&stream, text.size()) + 64, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(compressed.data());
    stream.avail_out = static_cast<uInt>(compressed.size());
    deflate(&stream, Z_FINISH);
    compressed.resize(stream.total_out);
    deflateEnd(&stream);
    return compressed;
}

/// Everything that a byte source delivers, in small pieces, and how it ended.
inline std::string readAll(const std::string& path, std::string& failure) {
    std::atomic<uint64_t> bytesRead{0};
    ByteSource source(path, bytesRead);
    std::string content;
    char buffer[7];
    try {
        while (const size_t count = source.read(buffer, sizeof(buffer)))
            content.append(buffer, count);
    }
    catch (const InputFailure& error) {
        failure = error.what();
    }
    return content;
}

/// What a file says, as text: "line lexical-form^^datatype" for each typed literal, "line:column message" for errors.
class RecordingSink final : public StatementSink {

public:

    bool receive(const Statement& statement, const StatementContext& context) override {
        ++m_statements;
        if (statement.m_object->type == SERD_LITERAL && !statement.m_datatypeIRI.empty()) {
            const std::string datatype(statement.m_datatypeIRI);
            m_text += std::to_string(context.getLine()) + " " + reinterpret_cast<const char*>(statement.m_object->buf) +
                      "^^" + datatype.substr(datatype.find_last_of("#:") + 1) + "\n";
        }
        if (m_statements == m_throwAt)
            throw std::runtime_error("thrown by the sink");
        return m_statements != m_stopAt;
    }

    std::string m_text;
    uint64_t m_statements = 0;
    uint64_t m_stopAt = UINT64_MAX;
    uint64_t m_throwAt = UINT64_MAX;
};

inline std::string describeError(const SyntaxError& error) {
    return std::to_string(error.m_line) + ":" + std::to_string(error.m_column) + " " + error.m_message + "\n";
}

inline std::string readLines(const std::string& path, RDFFormat format, size_t blockSize, RecordingSink& sink) {
    std::atomic<uint64_t> bytesRead{0};
    LineBlocks blocks(path, bytesRead, blockSize);
    LineReader reader(format, "file:///f", "f1_", sink);
    LineBlock block;
    std::string errors;
    try {
        while (blocks.next(block)) {
            const LineBlockResult result = reader.read(block, false);
            if (result.m_firstError)
                errors += describeError(*result.m_firstError);
        }
    }
    catch (const InputFailure& failure) {
        errors += std::to_string(failure.getLine()) + " " + failure.what() + "\n";
    }
    return sink.m_text + errors;
}

inline std::string makeLine(const std::string& form) {
    return "<x:s> <x:p> \"" + form + "\"^^<x:int> .\n";
}

}
