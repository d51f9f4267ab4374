#include "numdict/literals/TurtleText.h"

#include <fmt/format.h>

namespace kavix::numdict {

std::string makeTurtleString(std::string_view text) {
    std::string quoted(1, '"');
    for (const char character : text)
        switch (character) {
        case '"':
        case '\\':
            quoted += '\\';
            quoted += character;
            break;
        case '\n':
            quoted += "\\n";
            break;
        case '\r':
            quoted += "\\r";
            break;
        case '\t':
            quoted += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(character) < 0x20 || character == 0x7f)
                quoted += fmt::format("\\u{:04X}", static_cast<unsigned>(character));
            else
                quoted += character;
        }
    quoted += '"';
    return quoted;
}

}
