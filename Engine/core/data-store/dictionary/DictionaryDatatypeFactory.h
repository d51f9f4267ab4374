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
class MemoryManager;
class OutputStream;
class Prefixes;
template<typename T>
class MemoryRegion;

/// A family of datatypes: creates its dictionaries, and parses and prints its values, for which no dictionary is
/// needed. One object per family, which a DictionaryFamily makes known to dictionaries.
///
/// Values are passed in five arguments: datatype ID, data, data size in bytes, auxiliary data, auxiliary data size;
/// data is the binary form. All operations are safe to call from any number of threads.
class DictionaryDatatypeFactory : private Unmovable {

public:

    using DatatypeIDsAndIRIs = std::vector<std::pair<uint8_t, std::string>>;

    /// The pairs are the datatypes it serves.
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

private:

    const DatatypeIDsAndIRIs m_datatypeIDsAndIRIs;
};

}
