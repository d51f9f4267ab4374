#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kavix::numdict {

/// The syntaxes that are read. In the line formats a statement is a line, so a file can be cut at any line end.
enum class RDFFormat : uint8_t { N_TRIPLES, N_QUADS, TURTLE, TRIG };

/// The names of --format, for messages and help.
inline constexpr char RDF_FORMAT_NAMES[] = "nt, nq, ttl, trig";

/// The format called nt, nq, ttl or trig.
std::optional<RDFFormat> tryGetFormatByName(std::string_view name) noexcept;

/// The format according to the extension of a file name, also before ".gz". Upper and lower case are the same.
std::optional<RDFFormat> tryGetFormatOfPath(std::string_view path);

bool isLineFormat(RDFFormat format) noexcept;

}
