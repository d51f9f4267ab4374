#pragma once

namespace kavix {

/// Makes sure that the factories of the datatype families that come with the library are linked and registered. A new
/// family is named in DictionaryFamilies.cpp and nowhere else; families of an embedder's own register by being
/// constructed. Thread-safe and free.
void registerBuiltInDatatypeFamilies() noexcept;

}
