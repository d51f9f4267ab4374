#pragma once

namespace kavix {

/// The order in which the static objects of the library are constructed, as arguments of [[gnu::init_priority]]: lower
/// numbers come first, and all of them before the static objects of programs, which may be dictionaries. Within one
/// number and one translation unit the order is that of the definitions; between translation units it is unspecified.
inline constexpr int INITIALISE_TABLES = 1001; // refer to nothing
inline constexpr int INITIALISE_FACTORIES = 1002; // factories with the tables of their unit, and inspectors
inline constexpr int INITIALISE_FAMILIES = 1003; // refer to factories and inspectors

}
