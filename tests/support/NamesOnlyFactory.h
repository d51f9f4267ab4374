#pragma once

#include "core/data-store/dictionary/DictionaryDatatype.h"
#include "core/data-store/dictionary/DictionaryDatatypeFactory.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace kavix::test {

/// A family that has datatypes and nothing else.
class NamesOnlyFactory : public DictionaryDatatypeFactory {

public:

    using DictionaryDatatypeFactory::DictionaryDatatypeFactory;

    std::unique_ptr<DictionaryDatatype> createDictionaryDatatype(
        bool, MemoryManager&, std::atomic<uint64_t>&, MemoryRegion<uint64_t>&, MemoryRegion<std::atomic<uint8_t>>&,
        DataPool&) const override {
        return nullptr;
    }

    void inPlaceParseResourceValue(ResourceValue&, uint8_t) const override { }

    void parseResourceValue(ResourceValue&, const char*, size_t, uint8_t) const override { }

    size_t appendLexicalForm(uint8_t, const uint8_t*, size_t, const uint8_t*, size_t, char*, size_t) const override {
        return 0;
    }

    void appendLexicalForm(uint8_t, const uint8_t*, size_t, const uint8_t*, size_t, std::string&) const override { }

    void appendTurtleLiteral(
        uint8_t, const uint8_t*, size_t, const uint8_t*, size_t, const Prefixes&, std::string&) const override { }

    void printLexicalForm(uint8_t, const uint8_t*, size_t, const uint8_t*, size_t, OutputStream&) const override { }

    void printTurtleLiteral(
        uint8_t, const uint8_t*, size_t, const uint8_t*, size_t, const Prefixes&, OutputStream&) const override { }

    bool getEffectiveBooleanValue(uint8_t, const uint8_t*, size_t, const uint8_t*, size_t) const override {
        return false;
    }

    bool enumerateEqualResourceValues(const ResourceValue&, std::vector<ResourceValue>&) const override {
        return false;
    }
};

}
