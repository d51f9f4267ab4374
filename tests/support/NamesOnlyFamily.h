#pragma once

#include "core/data-store/embedding/DictionaryFamily.h"
#include "core/data-store/inspection/DictionaryDatatypeInspector.h"
#include "support/NamesOnlyFactory.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace kavix::test {

/// Inspects nothing.
class IdleInspector : public DictionaryDatatypeInspector {

public:

    void checkBinaryValue(const ResourceValue&) const override { }
    size_t countValidBinaryValues(std::span<const ResourceValue> values) const noexcept override {
        return values.size();
    }
    void checkImage(InputStream&, const ImageLimits&, const ProblemReport&) const override { }
    void verify(const DictionaryDatatype&, const StoreContents&, const ProblemReport&) const override { }
    std::vector<TableStatistics> getTableStatistics(const DictionaryDatatype&, const StoreContents&) const override {
        return {};
    }
};

/// A registered family that has datatypes and nothing else.
class NamesOnlyFamily {

public:

    NamesOnlyFamily(std::initializer_list<std::pair<uint8_t, std::string>> datatypeIDsAndIRIs) :
        m_factory(datatypeIDsAndIRIs),
        m_family(m_factory, m_inspector) { }

    const DictionaryFamily* get() const { return &m_family; }

private:

    const NamesOnlyFactory m_factory;
    const IdleInspector m_inspector;
    const DictionaryFamily m_family;
};

}
