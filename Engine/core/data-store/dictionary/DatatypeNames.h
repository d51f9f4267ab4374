#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kavix {

/// The name of a datatype in messages and reports: its IRI as Turtle writes it with the default prefixes, such as
/// xsd:byte.
std::string getDatatypeName(std::string_view datatypeIRI);

/// The same for the ID of a numeric datatype; for any other one, "the unknown datatype ID 7".
std::string getDatatypeName(uint8_t datatypeID);

}
