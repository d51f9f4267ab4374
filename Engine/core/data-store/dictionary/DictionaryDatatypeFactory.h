#pragma once

#include "core/data-store/dictionary/ResourceValue.h"
#include "core/platform/system/Unmovable.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kavix {

class DataPool;
class DictionaryDatatype;
class DictionaryDatatypeInspector;
class MemoryManager;
class OutputStream;
class Prefixes;
template<typename T>
class MemoryRegion;

/// A family of datatypes: creates its dictionaries, and parses and prints its values, for which no dictionary is
/// needed. One object per family; it registers itself at construction and is found by the IDs and IRIs of its datatypes
/// until it is destroyed. A Dictionary has the families that are registered when it is created, which must have an
/// inspector each and outlive it; one that is registered later belongs to later dictionaries.
///
/// Values are passed in five arguments: datatype ID, data, data size in bytes, auxiliary data, auxiliary data size;
/// data is the binary form. All operations are safe to call from any number of threads, also while families are
/// registered and removed; what an operation returns about a family is valid as long as the family exists.
class DictionaryDatatypeFactory : private Unmovable {

public:

    using DatatypeIDsAndIRIs = std::vector<std::pair<uint8_t, std::string>>;

    /// The factory of a datatype, or null.
    static const DictionaryDatatypeFactory* tryGetFactory(uint8_t datatypeID) noexcept;

    /// The ID of a datatype, or D_NONE if no registered family has it.
    static uint8_t tryGetDatatypeID(std::string_view datatypeIRI) noexcept;

    /// The IRI of a datatype; empty if no registered family has it. Lives as long as the factory.
    static std::string_view tryGetDatatypeIRI(uint8_t datatypeID) noexcept;

    /// The registered factories, in the order of their smallest datatype IDs.
    static std::vector<const DictionaryDatatypeFactory*> getFactories();

    /// Registers the factory. The pairs are the datatypes it serves; no other factory may serve one of the IDs.
    DictionaryDatatypeFactory(std::initializer_list<std::pair<uint8_t, std::string>> datatypeIDsAndIRIs);

    virtual ~DictionaryDatatypeFactory();

    /// Makes an empty dictionary of the family, to be initialised or loaded before use: an object of a class derived
    /// from DictionaryDatatypeBatches. The shared objects must outlive it: the budget, the counter of resource IDs, the
    /// two arrays indexed by resource ID (data words and datatype IDs) and the data pool.
    /// @param use32BitResourceIDs  how wide the dictionary stores resource IDs
    virtual std::unique_ptr<DictionaryDatatype> createDictionaryDatatype(
        bool use32BitResourceIDs, MemoryManager& memoryManager, std::atomic<uint64_t>& nextResourceID,
        MemoryRegion<uint64_t>& resourceData, MemoryRegion<std::atomic<uint8_t>>& resourceDatatypeIDs,
        DataPool& dataPool) const = 0;

    /// Parses the lexical form in value and replaces it by the binary form. Throws if it is invalid: value is
    /// unchanged.
    virtual void inPlaceParseResourceValue(ResourceValue& value, uint8_t datatypeID) const = 0;

    /// Parses a lexical form into value. Throws if it is invalid.
    virtual void parseResourceValue(
        ResourceValue& value, const char* text, size_t length, uint8_t datatypeID) const = 0;

    /// Writes as much of the lexical form as fits, and a NUL, into capacity bytes; returns its full length. With a
    /// capacity of 0 nothing is written. A result >= capacity means that it was truncated.
    virtual size_t appendLexicalForm(
        uint8_t datatypeID, const uint8_t* data, size_t dataSize, const uint8_t* auxiliaryData,
        size_t auxiliaryDataSize, char* buffer, size_t capacity) const = 0;

    virtual void appendLexicalForm(
        uint8_t datatypeID, const uint8_t* data, size_t dataSize, const uint8_t* auxiliaryData,
        size_t auxiliaryDataSize, std::string& text) const = 0;

    virtual void appendTurtleLiteral(
        uint8_t datatypeID, const uint8_t* data, size_t dataSize, const uint8_t* auxiliaryData,
        size_t auxiliaryDataSize, const Prefixes& prefixes, std::string& text) const = 0;

    virtual void printLexicalForm(
        uint8_t datatypeID, const uint8_t* data, size_t dataSize, const uint8_t* auxiliaryData,
        size_t auxiliaryDataSize, OutputStream& output) const = 0;

    virtual void printTurtleLiteral(
        uint8_t datatypeID, const uint8_t* data, size_t dataSize, const uint8_t* auxiliaryData,
        size_t auxiliaryDataSize, const Prefixes& prefixes, OutputStream& output) const = 0;

    virtual bool getEffectiveBooleanValue(
        uint8_t datatypeID, const uint8_t* data, size_t dataSize, const uint8_t* auxiliaryData,
        size_t auxiliaryDataSize) const = 0;

    /// Appends the values of all datatypes that the store treats as equal to value, which is in binary form and may be
    /// an element of values. Returns whether the family has such values at all.
    virtual bool enumerateEqualResourceValues(const ResourceValue& value, std::vector<ResourceValue>& values) const = 0;

    const DatatypeIDsAndIRIs& getDatatypeIDsAndIRIs() const noexcept { return m_datatypeIDsAndIRIs; }

    /// The inspector of the family, or null if it has none yet.
    const DictionaryDatatypeInspector* tryGetInspector() const noexcept {
        // Acquire. Pairs with the release in setInspector(): a thread that observes the inspector observes it complete.
        return m_inspector.load(std::memory_order_acquire);
    }

    /// Called by the inspector of the family, with its address when it is made and with null when it is destroyed.
    void setInspector(const DictionaryDatatypeInspector* inspector) noexcept {
        m_inspector.store(inspector, std::memory_order_release); // pairs with the acquire in tryGetInspector()
    }

private:

    const DatatypeIDsAndIRIs m_datatypeIDsAndIRIs;
    std::atomic<const DictionaryDatatypeInspector*> m_inspector;
};

}
