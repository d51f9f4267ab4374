#pragma once

#include <cstddef>
#include <string_view>

namespace kavix::numdict {

/// White space inside a line, and the carriage return that may end it.
inline constexpr std::string_view LINE_BLANKS(" \t\r");

/// A text without such characters at its start and its end.
inline std::string_view trim(std::string_view text, std::string_view characters) noexcept {
    const size_t start = text.find_first_not_of(characters);
    return start == std::string_view::npos ? std::string_view()
                                           : text.substr(start, text.find_last_not_of(characters) + 1 - start);
}

}
