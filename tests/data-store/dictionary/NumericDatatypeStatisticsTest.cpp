#include "core/data-store/dictionary/ComponentInfo.h"
#include "core/data-store/dictionary/NumericDatatype.h"
#include "support/NumericImage.h"
#include "support/NumericStore.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace kavix::test {

namespace {

const char* const TABLE_NAMES[] = {
    "xsd:decimal",
    "xsd:integer",
    "xsd:nonNegativeInteger",
    "xsd:nonPositiveInteger",
    "xsd:negativeInteger",
    "xsd:positiveInteger",
    "xsd:long",
    "xsd:int",
    "xsd:short",
    "xsd:byte",
    "xsd:unsignedLong",
    "xsd:unsignedInt",
    "xsd:unsignedShort",
    "xsd:unsignedByte"};

template<typename ResourceID>
class NumericDatatypeStatisticsTest : public ::testing::Test {
protected:
    using Store = NumericStore<ResourceID>;
    NumericDatatypeStatisticsTest() { m_store.initialize(); }

    static double getLoadFactor(const ComponentInfo& table) {
        const ComponentInfo::Property& property = table.getProperties().at(3);
        EXPECT_EQ(property.m_name, "Load factor (%)");
        return std::get<double>(property.m_value);
    }

    Store m_store;
};

TYPED_TEST_SUITE(NumericDatatypeStatisticsTest, ResourceIDTypes);

TYPED_TEST(NumericDatatypeStatisticsTest, AFreshDictionaryReportsFourteenEmptyTables) {
    const std::unique_ptr<ComponentInfo> root = std::as_const(*this->m_store.m_dictionary).getComponentInfo();
    EXPECT_EQ(root->getName(), "NumericDatatype");
    ASSERT_EQ(root->getChildren().size(), 14u);
    for (size_t index = 0; index < 14; ++index) {
        const ComponentInfo& table = *root->getChildren()[index];
        SCOPED_TRACE(TABLE_NAMES[index]);
        EXPECT_EQ(table.getName(), TABLE_NAMES[index]);
        EXPECT_TRUE(table.getChildren().empty());
        const std::vector<ComponentInfo::Property>& properties = table.getProperties();
        ASSERT_EQ(properties.size(), 4u);
        const char* const names[] = {"Size", "Total number of buckets", "Number of used buckets"};
        const uint64_t values[] = {index == 0 ? 8192u : 16384u, 1024, 0};
        for (size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(properties[i].m_name, names[i]);
            EXPECT_EQ(std::get<uint64_t>(properties[i].m_value), values[i]);
            EXPECT_EQ(properties[i].m_kind, 0);
        }
        EXPECT_EQ(this->getLoadFactor(table), 0.0);
    }
    ASSERT_EQ(root->getProperties().size(), 1u);
    EXPECT_EQ(root->getProperties()[0].m_name, "Aggregate size");
    EXPECT_EQ(root->getProperties()[0].m_kind, 0);
    EXPECT_EQ(root->getNumericProperty("Aggregate size"), 8192u + 13 * 16384u);
}

TYPED_TEST(NumericDatatypeStatisticsTest, OneValueIsOneUsedBucketAndStaysOneWhenDeleted) {
    const uint64_t resourceID = this->m_store.resolve("5", D_XSD_BYTE);
    const auto check = [&] {
        const std::unique_ptr<ComponentInfo> root = this->m_store.m_dictionary->getComponentInfo();
        for (size_t index = 0; index < 14; ++index) {
            const bool isByte = index == size_t(D_XSD_BYTE) - FIRST_NUMERIC_DATATYPE;
            EXPECT_EQ(root->getChildren()[index]->getNumericProperty("Number of used buckets"), isByte ? 1u : 0u);
            EXPECT_EQ(this->getLoadFactor(*root->getChildren()[index]), isByte ? 100.0 / 1024.0 : 0.0);
        }
    };
    check();
    this->m_store.m_dictionary->deleteUncommittedResourceID(Visibility(0, 0), resourceID, D_XSD_BYTE);
    check();
}

TYPED_TEST(NumericDatatypeStatisticsTest, TheAggregateIsTheSumOfTheSizesAndWhatTheBudgetWasCharged) {
    DictionaryUsageContext context;
    for (int i = 0; i < 10000; ++i) {
        this->m_store.resolve(std::to_string(i), D_XSD_LONG, &context);
        if (i % 3 == 0)
            this->m_store.resolve(std::to_string(i) + ".5", D_XSD_DECIMAL, &context);
    }
    const std::unique_ptr<ComponentInfo> root = this->m_store.m_dictionary->getComponentInfo();
    uint64_t sum = 0;
    for (const std::unique_ptr<ComponentInfo>& table : root->getChildren())
        sum += table->getNumericProperty("Size");
    EXPECT_EQ(root->getNumericProperty("Aggregate size"), sum);
    EXPECT_EQ(
        sum + this->m_store.m_resourceData.getCommittedBytes() +
            this->m_store.m_resourceDatatypeIDs.getCommittedBytes() + this->m_store.m_dataPool.getCommittedBytes(),
        this->m_store.m_memoryManager.getChargedBytes());
    const ComponentInfo& longs = *root->getChildren()[size_t(D_XSD_LONG) - FIRST_NUMERIC_DATATYPE];
    EXPECT_EQ(longs.getNumericProperty("Size"), 16384u * 16);
    EXPECT_EQ(longs.getNumericProperty("Total number of buckets"), 16384u);
    EXPECT_EQ(longs.getNumericProperty("Number of used buckets"), 10000u);
    EXPECT_EQ(this->getLoadFactor(longs), 10000.0 * 100.0 / 16384.0);
}

TYPED_TEST(NumericDatatypeStatisticsTest, ATableWithoutBucketsHasNoLoadFactor) {
    NumericImage image;
    ImageTable& longs = image[D_XSD_LONG];
    longs.m_numberOfBuckets = longs.m_resizeThreshold = longs.m_maximum = 0;
    longs.m_buckets.clear();
    loadFromBytes(*this->m_store.m_dictionary, image.toBytes());
    const std::unique_ptr<ComponentInfo> root = this->m_store.m_dictionary->getComponentInfo();
    for (size_t index = 0; index < 14; ++index)
        EXPECT_EQ(
            root->getChildren()[index]->getProperties().size(),
            index == size_t(D_XSD_LONG) - FIRST_NUMERIC_DATATYPE ? 3u : 4u);
    EXPECT_EQ(root->getChildren()[size_t(D_XSD_LONG) - FIRST_NUMERIC_DATATYPE]->getNumericProperty("Size"), 0u);
}

TYPED_TEST(NumericDatatypeStatisticsTest, ADictionaryThatWasNeverInitializedReportsNothingCommitted) {
    const std::unique_ptr<ComponentInfo> root = this->m_store.makeDictionary()->getComponentInfo();
    EXPECT_EQ(root->getChildren().size(), 14u);
    EXPECT_EQ(root->getNumericProperty("Aggregate size"), 0u);
    EXPECT_EQ(root->getChildren()[0]->getProperties().size(), 3u);
}

}

}
