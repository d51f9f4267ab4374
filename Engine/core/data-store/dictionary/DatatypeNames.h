#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kavix {

/// The name under which messages and reports show a datatype: its IRI as Turtle writes it with the default prefixes,
/// such as xsd:byte.
std::string getDatatypeName(std::string_view datatypeIRI);

/// The same for a datatype ID; "the unknown datatype ID 7" where no registered family has it.
std::string getDatatypeName(uint8_t datatypeID);

}
