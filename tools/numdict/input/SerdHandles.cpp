#include "numdict/input/SerdHandles.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace kavix::numdict {

namespace {

const uint8_t* toBytes(const std::string& text) {
    return reinterpret_cast<const uint8_t*>(text.c_str());
}

}

SerdEnvPointer makeEnvironment(const std::string& baseIRI) {
    const SerdNode base = serd_node_from_string(SERD_URI, toBytes(baseIRI));
    return SerdEnvPointer(serd_env_new(&base));
}

std::string makeBaseIRI(const std::string& path) {
    if (path == "-")
        return "file:///dev/stdin";
    std::error_code error;
    const std::filesystem::path absolutePath = std::filesystem::absolute(path, error);
    SerdNode node = serd_node_new_file_uri(toBytes(error ? path : absolutePath.string()), nullptr, nullptr, true);
    std::string baseIRI(reinterpret_cast<const char*>(node.buf), node.n_bytes);
    serd_node_free(&node);
    return baseIRI;
}

std::string formatSerdError(const SerdError& error) {
    char text[256];
    va_list arguments;
    va_copy(arguments, *error.args);
    const int length = std::vsnprintf(text, sizeof(text), error.fmt, arguments);
    va_end(arguments);
    std::string message;
    for (int index = 0; index < length && index < static_cast<int>(sizeof(text)) - 1; ++index) {
        const char character = text[index];
        if (character == '`')
            message += '\'';
        else if (character == '\n' || character == '\r')
            message += ' ';
        else if (static_cast<unsigned char>(character) < 0x20 || static_cast<unsigned char>(character) >= 0x7f) {
            char code[8];
            std::snprintf(code, sizeof(code), "\\x%02X", static_cast<unsigned char>(character));
            message += code;
        }
        else
            message += character;
    }
    while (!message.empty() && message.back() == ' ')
        message.pop_back();
    return message;
}

}
