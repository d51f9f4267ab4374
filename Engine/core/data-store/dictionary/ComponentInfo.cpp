#include "core/data-store/dictionary/ComponentInfo.h"

#include "core/platform/errors/ErrorCatalogue.h"

#include <utility>

namespace kavix {

ComponentInfo::ComponentInfo(std::string name) :
    m_name(std::move(name)) { }

void ComponentInfo::addNumericProperty(const std::string& name, unsigned long value, unsigned short kind) {
    m_properties.push_back(Property{name, uint64_t(value), kind});
}

void ComponentInfo::addDoubleProperty(const std::string& name, double value) {
    m_properties.push_back(Property{name, value, 0});
}

uint64_t ComponentInfo::getNumericProperty(const std::string& name) const {
    for (const Property& property : m_properties)
        if (property.m_name == name)
            if (const uint64_t* const value = std::get_if<uint64_t>(&property.m_value))
                return *value;
    Errors::throwUnknownProperty(std::string(m_name), std::string(name));
}

}
