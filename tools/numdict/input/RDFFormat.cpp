#include "numdict/input/RDFFormat.h"

#include <cstddef>
#include <string>

namespace kavix::numdict {

std::optional<RDFFormat> tryGetFormatByName(std::string_view name) noexcept {
    if (name == "nt")
        return RDFFormat::N_TRIPLES;
    if (name == "nq")
        return RDFFormat::N_QUADS;
    if (name == "ttl")
        return RDFFormat::TURTLE;
    if (name == "trig")
        return RDFFormat::TRIG;
    return std::nullopt;
}

std::optional<RDFFormat> tryGetFormatOfPath(std::string_view path) {
    const size_t slash = path.rfind('/');
    std::string name(slash == std::string_view::npos ? path : path.substr(slash + 1));
    for (char& character : name)
        if (character >= 'A' && character <= 'Z')
            character = static_cast<char>(character - 'A' + 'a');
    if (name.ends_with(".gz"))
        name.resize(name.size() - 3);
    const size_t dot = name.rfind('.');
    return dot == std::string::npos ? std::nullopt : tryGetFormatByName(std::string_view(name).substr(dot + 1));
}

bool isLineFormat(RDFFormat format) noexcept {
    return format == RDFFormat::N_TRIPLES || format == RDFFormat::N_QUADS;
}

}
