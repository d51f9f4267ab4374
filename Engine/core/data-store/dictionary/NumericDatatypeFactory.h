#pragma once

#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kavix {

/// The entry point of the numeric family: xsd:decimal (22), xsd:integer (23) and its twelve derived types (24 to 35).
/// It has no state of its own; every operation may be called from any number of threads at once. Datatype IDs outside
/// the family violate the precondition. Printing integers allocates only if a string owned by the caller grows.
class NumericDatatypeFactory : public DictionaryDatatypeFactory {

public:

    NumericDatatypeFactory();

    ~NumericDatatypeFactory() override;

    std::unique_ptr<DictionaryDatatype> createDictionaryDatatype(
        bool use32BitResourceIDs, MemoryManager& memoryManager, std::atomic<uint64_t>& nextResourceID,
        MemoryRegion<uint64_t>& resourceData, MemoryRegion<std::atomic<uint8_t>>& resourceDatatypeIDs,
        DataPool& dataPool) const override;

    void inPlaceParseResourceValue(ResourceValue& value, uint8_t datatypeID) const override;

    /// For xsd:decimal the fields of value are set before the form is parsed: after a failure it has ID 22, size 16 and
    /// an unspecified buffer. For an integer datatype value is unchanged after a failure.
    void parseResourceValue(ResourceValue& value, const char* text, size_t length, uint8_t datatypeID) const override;

    size_t appendLexicalForm(
        uint8_t datatypeID, const uint8_t* data, size_t dataSize, const uint8_t* auxiliaryData,
        size_t auxiliaryDataSize, char* buffer, size_t capacity) const override;

    void appendLexicalForm(
        uint8_t datatypeID, const uint8_t* data, size_t dataSize, const uint8_t* auxiliaryData,
        size_t auxiliaryDataSize, std::string& text) const override;

    void appendTurtleLiteral(
        uint8_t datatypeID, const uint8_t* data, size_t dataSize, const uint8_t* auxiliaryData,
        size_t auxiliaryDataSize, const Prefixes& prefixes, std::string& text) const override;

    void printLexicalForm(
        uint8_t datatypeID, const uint8_t* data, size_t dataSize, const uint8_t* auxiliaryData,
        size_t auxiliaryDataSize, OutputStream& output) const override;

    void printTurtleLiteral(
        uint8_t datatypeID, const uint8_t* data, size_t dataSize, const uint8_t* auxiliaryData,
        size_t auxiliaryDataSize, const Prefixes& prefixes, OutputStream& output) const override;

    /// True exactly when the value is not zero.
    bool getEffectiveBooleanValue(
        uint8_t datatypeID, const uint8_t* data, size_t dataSize, const uint8_t* auxiliaryData,
        size_t auxiliaryDataSize) const override;

    /// Always returns true. xsd:double and xsd:float values are the nearest ones, even if they are not exactly equal.
    bool enumerateEqualResourceValues(const ResourceValue& value, std::vector<ResourceValue>& values) const override;
};

/// The single factory of the numeric family.
extern const NumericDatatypeFactory s_NumericDatatypeFactory;

}
