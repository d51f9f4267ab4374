#pragma once

#include <serd/serd.h>

#include <memory>
#include <string>

namespace kavix::numdict {

struct SerdDeleter {
    void operator()(SerdReader* reader) const noexcept { serd_reader_free(reader); }
    void operator()(SerdWriter* writer) const noexcept { serd_writer_free(writer); }
    void operator()(SerdEnv* environment) const noexcept { serd_env_free(environment); }
};

using SerdReaderPointer = std::unique_ptr<SerdReader, SerdDeleter>;
using SerdWriterPointer = std::unique_ptr<SerdWriter, SerdDeleter>;
using SerdEnvPointer = std::unique_ptr<SerdEnv, SerdDeleter>;

/// An environment with a base IRI. Without one, reading ends silently at the first relative IRI.
SerdEnvPointer makeEnvironment(const std::string& baseIRI);

/// The file: IRI of a path; a fixed one for standard input ("-").
std::string makeBaseIRI(const std::string& path);

/// The text of an error, without line end, in plain quotes.
std::string formatSerdError(const SerdError& error);

}
