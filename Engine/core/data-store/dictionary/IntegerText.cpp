#include "core/data-store/dictionary/IntegerText.h"

namespace kavix {

void appendNumber(unsigned long value, std::string& text) {
    char buffer[MAX_UNSIGNED_TEXT_LENGTH];
    text.append(buffer, appendNumber(value, buffer));
}

}
