#include "numdict/console/Sizes.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <utility>

namespace kavix::numdict {

namespace {

/// value * 10^-fractionDigits * unit, rounded down; nothing beyond 64 bits.
std::optional<uint64_t> scale(std::string_view digits, size_t fractionDigits, uint64_t unit) {
    uint64_t value = 0;
    for (const char digit : digits)
        if (__builtin_mul_overflow(value, uint64_t(10), &value) ||
            __builtin_add_overflow(value, static_cast<uint64_t>(digit - '0'), &value))
            return std::nullopt;
    if (__builtin_mul_overflow(value, unit, &value))
        return std::nullopt;
    for (size_t index = 0; index < fractionDigits; ++index)
        value /= 10;
    return value;
}

template<size_t N>
std::optional<uint64_t> parseWithUnit(
    std::string_view text, const std::array<std::pair<std::string_view, uint64_t>, N>& units) {
    std::string digits;
    size_t fractionDigits = 0;
    size_t index = 0;
    bool hasPoint = false;
    for (; index < text.size(); ++index) {
        const char character = text[index];
        if (character >= '0' && character <= '9') {
            digits += character;
            fractionDigits += hasPoint ? 1 : 0;
        }
        else if (character == '.' && !hasPoint && !digits.empty())
            hasPoint = true;
        else
            break;
    }
    if (digits.empty() || (hasPoint && fractionDigits == 0))
        return std::nullopt;
    const std::string_view unitName = text.substr(index);
    for (const auto& [name, unit] : units)
        if (name == unitName)
            return hasPoint && unit == 1 ? std::nullopt : scale(digits, fractionDigits, unit);
    return std::nullopt;
}

constexpr uint64_t KIBI = 1024;

constexpr uint64_t KILO = 1000;

}

std::optional<uint64_t> tryParseSize(std::string_view text) {
    static constexpr std::array<std::pair<std::string_view, uint64_t>, 14> UNITS{{
        {"", 1},
        {"B", 1},
        {"K", KIBI},
        {"KiB", KIBI},
        {"M", KIBI * KIBI},
        {"MiB", KIBI * KIBI},
        {"G", KIBI * KIBI * KIBI},
        {"GiB", KIBI * KIBI * KIBI},
        {"T", KIBI * KIBI * KIBI * KIBI},
        {"TiB", KIBI * KIBI * KIBI * KIBI},
        {"kB", KILO},
        {"MB", KILO * KILO},
        {"GB", KILO * KILO * KILO},
        {"TB", KILO * KILO * KILO * KILO},
    }};
    return parseWithUnit(text, UNITS);
}

std::optional<uint64_t> tryParseCount(std::string_view text) {
    static constexpr std::array<std::pair<std::string_view, uint64_t>, 4> UNITS{{
        {"", 1},
        {"k", KILO},
        {"M", KILO * KILO},
        {"G", KILO * KILO * KILO},
    }};
    return parseWithUnit(text, UNITS);
}

std::string formatSize(uint64_t numberOfBytes) {
    static constexpr std::array<const char*, 5> UNITS{"bytes", "KiB", "MiB", "GiB", "TiB"};
    double size = static_cast<double>(numberOfBytes);
    size_t unit = 0;
    while (size >= 1024 && unit + 1 < UNITS.size()) {
        size /= 1024;
        ++unit;
    }
    return unit == 0 ? fmt::format("{} bytes", numberOfBytes) : fmt::format("{:.1f} {}", size, UNITS[unit]);
}

std::string formatHugePages(const std::optional<uint64_t>& numberOfBytes) {
    return numberOfBytes ? formatSize(*numberOfBytes) + " on huge pages"
                         : std::string("the system does not report huge pages");
}

std::string formatCount(uint64_t count) {
    std::string text = fmt::format("{}", count);
    for (size_t position = text.size(); position > 3;) {
        position -= 3;
        text.insert(position, 1, ',');
    }
    return text;
}

std::string formatShare(uint64_t part, uint64_t whole) {
    return whole == 0 ? std::string("-")
                      : fmt::format("{:.1f}%", 100.0 * static_cast<double>(part) / static_cast<double>(whole));
}

std::string formatDuration(double seconds) {
    if (seconds < 60)
        return fmt::format("{:.{}f} s", seconds, seconds < 10 ? 2 : 1);
    const auto whole = static_cast<uint64_t>(std::llround(seconds));
    if (whole < 3600)
        return fmt::format("{} min {} s", whole / 60, whole % 60);
    return fmt::format("{} h {} min", whole / 3600, whole % 3600 / 60);
}

}
