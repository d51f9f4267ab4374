#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace kavix::numdict {

/// An object whose fields are printed in the order in which they were added.
using JSON = nlohmann::ordered_json;

/// Over several lines, indented, with line end. Bytes that are not UTF-8, as paths may have, are replaced.
std::string formatJSON(const JSON& value);

/// The same on one line.
std::string formatJSONLine(const JSON& value);

/// Null if there is no value.
template<typename T>
JSON toJSON(const std::optional<T>& value) {
    return value ? JSON(*value) : JSON();
}

/// Null if the text is empty.
JSON toJSONOrNull(std::string_view text);

}
