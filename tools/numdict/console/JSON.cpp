#include "numdict/console/JSON.h"

namespace kavix::numdict {

std::string formatJSON(const JSON& value) {
    return value.dump(2, ' ', false, JSON::error_handler_t::replace) + "\n";
}

std::string formatJSONLine(const JSON& value) {
    return value.dump(-1, ' ', false, JSON::error_handler_t::replace) + "\n";
}

JSON toJSONOrNull(std::string_view text) {
    return text.empty() ? JSON() : JSON(text);
}

}
