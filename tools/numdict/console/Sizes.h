#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kavix::numdict {

/// Reads a number of bytes: digits, optionally a fraction, then nothing or K, M, G, T, KiB, MiB, GiB, TiB (powers of
/// 1024) or kB, MB, GB, TB (powers of 1000); "512M", "2GiB", "1.5G". Nothing for anything else or beyond 64 bits.
std::optional<uint64_t> tryParseSize(std::string_view text);

/// Reads a count: digits, then nothing or k, M, G (powers of 1000).
std::optional<uint64_t> tryParseCount(std::string_view text);

/// "1.5 GiB"
std::string formatSize(uint64_t numberOfBytes);

/// "4.0 MiB on huge pages"; says so if the system does not report it.
std::string formatHugePages(const std::optional<uint64_t>& numberOfBytes);

/// "1,234,567"
std::string formatCount(uint64_t count);

/// "12.3%"; "-" of nothing.
std::string formatShare(uint64_t part, uint64_t whole);

/// "0.42 s", "3 min 5 s", "2 h 4 min"
std::string formatDuration(double seconds);

}
