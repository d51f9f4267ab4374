#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace kavix {

/// A node of a statistics tree: a name, properties in the order they were added, children in the order they were
/// appended. Not synchronised.
class ComponentInfo {

public:

    struct Property {
        std::string m_name;
        std::variant<uint64_t, double> m_value;
        unsigned short m_kind; // how to show a numeric property; 0: unformatted
    };

    explicit ComponentInfo(std::string name);

    void addNumericProperty(const std::string& name, unsigned long value, unsigned short kind);

    void addDoubleProperty(const std::string& name, double value);

    const std::string& getName() const { return m_name; }

    const std::vector<Property>& getProperties() const { return m_properties; }

    /// The completed children; append to the vector to add one.
    std::vector<std::unique_ptr<ComponentInfo>>& getChildren() { return m_children; }

    const std::vector<std::unique_ptr<ComponentInfo>>& getChildren() const { return m_children; }

    /// The value of the first numeric property of this node with that name; properties of type double are ignored.
    /// @throws KavixException  there is no such property
    uint64_t getNumericProperty(const std::string& name) const;

private:

    std::string m_name;
    std::vector<Property> m_properties;
    std::vector<std::unique_ptr<ComponentInfo>> m_children;
};

}
