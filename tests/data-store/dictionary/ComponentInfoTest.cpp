#include "core/data-store/dictionary/ComponentInfo.h"

#include "core/platform/errors/KavixException.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace kavix {
namespace {

constexpr unsigned long MAXIMUM = std::numeric_limits<unsigned long>::max();

TEST(ComponentInfo, StartsWithItsNameAlone) {
    const ComponentInfo info("NumericDatatype");

    EXPECT_EQ(info.getName(), "NumericDatatype");
    EXPECT_TRUE(info.getProperties().empty());
    EXPECT_TRUE(info.getChildren().empty());
}

TEST(ComponentInfo, KeepsPropertiesInTheOrderTheyWereAdded) {
    ComponentInfo info("xsd:int");
    info.addNumericProperty("Size", 0, 0);
    info.addDoubleProperty("Load factor (%)", 12.5);
    info.addNumericProperty("Another size", MAXIMUM, 7);

    const std::vector<ComponentInfo::Property>& properties = info.getProperties();
    ASSERT_EQ(properties.size(), 3u);
    EXPECT_EQ(properties[0].m_name, "Size");
    EXPECT_EQ(std::get<uint64_t>(properties[0].m_value), 0u);
    EXPECT_EQ(properties[0].m_kind, 0u);
    EXPECT_EQ(properties[1].m_name, "Load factor (%)");
    EXPECT_EQ(std::get<double>(properties[1].m_value), 12.5);
    EXPECT_EQ(properties[1].m_kind, 0u);
    EXPECT_EQ(properties[2].m_name, "Another size");
    EXPECT_EQ(std::get<uint64_t>(properties[2].m_value), MAXIMUM);
    EXPECT_EQ(properties[2].m_kind, 7u);
}

TEST(ComponentInfo, KeepsChildrenInTheOrderTheyWereAppended) {
    ComponentInfo info("root");
    for (const char* const name : {"first", "second", "third"}) {
        std::unique_ptr<ComponentInfo> child = std::make_unique<ComponentInfo>(name);
        child->addNumericProperty("Size", 1, 0);
        info.getChildren().push_back(std::move(child));
    }

    const ComponentInfo& finished = info;
    ASSERT_EQ(finished.getChildren().size(), 3u);
    EXPECT_EQ(finished.getChildren()[0]->getName(), "first");
    EXPECT_EQ(finished.getChildren()[1]->getName(), "second");
    EXPECT_EQ(finished.getChildren()[2]->getName(), "third");
    EXPECT_TRUE(finished.getProperties().empty()) << "a child's properties are its own";
}

TEST(ComponentInfo, FindsNumericPropertiesByName) {
    ComponentInfo info("xsd:int");
    info.addDoubleProperty("Size", 1.5); // no numeric property, though it has the name
    info.addNumericProperty("Size", 4096, 0);
    info.addNumericProperty("Size", 8192, 0);
    info.addNumericProperty("Total number of buckets", MAXIMUM, 0);

    EXPECT_EQ(info.getNumericProperty("Size"), 4096u);
    EXPECT_EQ(info.getNumericProperty("Total number of buckets"), MAXIMUM);
}

TEST(ComponentInfo, MissingNumericPropertiesAreReported) {
    ComponentInfo info("xsd:int");
    info.addDoubleProperty("Load factor (%)", 12.5);
    info.addNumericProperty("Size", 4096, 0);

    for (const std::string name : {"size", "", "Load factor (%)"}) {
        SCOPED_TRACE(name);
        try {
            info.getNumericProperty(name);
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const KavixException& exception) {
            EXPECT_EQ(exception.getMessage(), "Component 'xsd:int' has no numeric property '" + name + "'.");
            EXPECT_EQ(exception.getSourceFile(), "Engine/core/data-store/dictionary/ComponentInfo");
        }
    }
}

}
}
