#pragma once

#include <nlohmann/json.hpp>

#include <set>
#include <string>

namespace kavix::numdict {

inline std::set<std::string> keysOf(const nlohmann::json& object) {
    std::set<std::string> keys;
    for (const auto& item : object.items())
        keys.insert(item.key());
    return keys;
}

}
