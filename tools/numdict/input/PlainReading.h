#pragma once

#include "numdict/input/InputFiles.h"

#include <cstdint>
#include <vector>

namespace kavix::numdict {

/// Reads files by the parser alone, with several threads, and drops every statement: no import can be faster. The
/// parser gets what suits it best: whole blocks of lines of N-Triples and N-Quads, in the mode in which the import
/// reads them, which is the faster one, and Turtle and TriG in pages. Files are decompressed, and shared out to
/// threads, as an import does it. A piece of a block that has a damaged line is read a second time, line by line.
/// @return the number of statements
/// @throws InputFailure  a file cannot be read on
uint64_t readPlainly(const std::vector<InputFile>& files, unsigned numberOfThreads);

}
