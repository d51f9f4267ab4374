#pragma once

#include "numdict/literals/LiteralGenerator.h"

#include <cstdint>
#include <string>

namespace kavix::numdict {

inline std::string makeStatements(uint64_t seed, int count) {
    LiteralGenerator generator(seed);
    std::string content;
    for (int number = 0; number < count; ++number)
        generator.appendStatement(content);
    return content;
}

}
