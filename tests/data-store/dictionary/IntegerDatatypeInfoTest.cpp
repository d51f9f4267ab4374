#include "core/data-store/dictionary/IntegerDatatypeInfo.h"

#include "core/data-store/dictionary/DatatypeIDs.h"
#include "core/data-store/dictionary/DatatypeIRIs.h"
#include "data-store/dictionary/IntegerDatatypeRows.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

namespace kavix {

using test::DatatypeRow;
using test::DATATYPES;

TEST(IntegerDatatypeInfo, RecordsAreInTheOrderOfTheirDatatypeIDs) {
    ASSERT_EQ(std::size(s_integerDatatypeInfos), std::size(DATATYPES));
    for (size_t index = 0; index < std::size(DATATYPES); ++index) {
        const DatatypeRow& row = DATATYPES[index];
        SCOPED_TRACE(row.m_name);
        const IntegerDatatypeInfo& info = s_integerDatatypeInfos[index];
        EXPECT_EQ(info.datatypeID, index + 23);
        EXPECT_EQ(info.datatypeID, row.m_datatypeID);
        EXPECT_EQ(info.datatypeIRI, "http://www.w3.org/2001/XMLSchema#" + std::string(row.m_name).substr(4));
        EXPECT_EQ(info.datatypeIRI, row.m_datatypeIRI);
        EXPECT_EQ(info.minimum, row.m_minimum);
        EXPECT_EQ(info.maximum, row.m_maximum);
        EXPECT_EQ(&getIntegerDatatypeInfo(row.m_datatypeID), &info);
        EXPECT_TRUE(isIntegerDatatype(row.m_datatypeID));
        EXPECT_TRUE(isNumericDatatype(row.m_datatypeID));
    }
    EXPECT_EQ(s_xsdDecimal, "http://www.w3.org/2001/XMLSchema#decimal");
    EXPECT_FALSE(isIntegerDatatype(D_XSD_DECIMAL));
    EXPECT_TRUE(isNumericDatatype(D_XSD_DECIMAL));
    EXPECT_FALSE(isNumericDatatype(D_XSD_FLOAT));
    EXPECT_FALSE(isNumericDatatype(36));
}

TEST(IntegerDatatypeInfo, IRIsLeadToDatatypeIDs) {
    EXPECT_EQ(s_datatypeIRIsToIDs.size(), 14u);
    EXPECT_EQ(s_datatypeIRIsToIDs.at(XSD_DECIMAL), D_XSD_DECIMAL);
    for (const DatatypeRow& row : DATATYPES)
        EXPECT_EQ(s_datatypeIRIsToIDs.at(row.m_datatypeIRI), row.m_datatypeID);
}

}
