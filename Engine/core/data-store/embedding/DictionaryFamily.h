#pragma once

#include "core/platform/system/Unmovable.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace kavix {

class DictionaryDatatypeFactory;
class DictionaryDatatypeInspector;

/// A family of datatypes as dictionaries know it: a factory and the inspector that belongs to it. It is registered
/// while it exists, so both are complete before any thread finds them. A Dictionary has the families that are
/// registered when it is created, and they must outlive it; a family that is registered later, by a plug-in for
/// example, belongs to later dictionaries.
/// Threads   all operations: any number at once, also while families come and go; what an operation returns about a
///           family is valid as long as the family exists. Look-ups take no lock.
class DictionaryFamily : private Unmovable {

public:

    /// Registers the family. No other family may have one of its datatypes. Factory and inspector must outlive it.
    /// @throws std::bad_alloc  it is not registered
    DictionaryFamily(const DictionaryDatatypeFactory& factory, const DictionaryDatatypeInspector& inspector);

    /// Removes the family from the registry. It allocates about 6 KB, which are kept until the process ends, as when it
    /// was registered; without memory for that the process ends.
    ~DictionaryFamily();

    const DictionaryDatatypeFactory& getFactory() const noexcept { return m_factory; }

    const DictionaryDatatypeInspector& getInspector() const noexcept { return m_inspector; }

    /// The family of a datatype, or null.
    static const DictionaryFamily* tryGetFamily(uint8_t datatypeID) noexcept;

    /// The ID of a datatype, or D_NONE if no registered family has it.
    static uint8_t tryGetDatatypeID(std::string_view datatypeIRI) noexcept;

    /// The IRI of a datatype; empty if no registered family has it.
    static std::string_view tryGetDatatypeIRI(uint8_t datatypeID) noexcept;

    /// The registered families, in the order of their smallest datatype IDs.
    static std::vector<const DictionaryFamily*> getFamilies();

private:

    const DictionaryDatatypeFactory& m_factory;
    const DictionaryDatatypeInspector& m_inspector;
};

}
