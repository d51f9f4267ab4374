#include "numdict/literals/Datatypes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>

using namespace kavix;
using namespace kavix::numdict;

TEST(Datatypes, EachNumericDatatypeIsFoundByItsIRIAlone) {
    std::set<uint8_t> datatypeIDs;
    for (const uint8_t datatypeID : NUMERIC_DATATYPE_IDS) {
        SCOPED_TRACE(static_cast<unsigned>(datatypeID));
        const std::string datatypeIRI(getDatatypeIRI(datatypeID));
        EXPECT_TRUE(datatypeIRI.starts_with(XSD_NAMESPACE));
        EXPECT_EQ(findNumericDatatype(datatypeIRI), datatypeID);
        EXPECT_EQ(findNumericDatatype(datatypeIRI + "s"), D_NONE);
        EXPECT_EQ(findNumericDatatype(datatypeIRI.substr(0, datatypeIRI.size() - 1)), D_NONE);
        EXPECT_EQ(getDatatypeName(datatypeID), "xsd:" + datatypeIRI.substr(sizeof(XSD_NAMESPACE) - 1));
        datatypeIDs.insert(datatypeID);
    }
    EXPECT_EQ(datatypeIDs.size(), NUMBER_OF_NUMERIC_DATATYPES);
    EXPECT_EQ(*datatypeIDs.begin(), D_XSD_DECIMAL);
    EXPECT_EQ(*datatypeIDs.rbegin(), D_XSD_UNSIGNED_BYTE);
    EXPECT_EQ(findNumericDatatype(getDatatypeIRI(D_XSD_DOUBLE)), D_NONE);
    EXPECT_EQ(findNumericDatatype(""), D_NONE);
}

TEST(Datatypes, OnlyTheNamespacesOfXMLSchemaAndRDFAreAbbreviated) {
    EXPECT_EQ(getDatatypeName(D_XSD_INT), "xsd:int");
    EXPECT_EQ(getDatatypeName(D_XSD_NEGATIVE_INTEGER), "xsd:negativeInteger");
    EXPECT_EQ(getDatatypeName(D_XSD_FLOAT), "xsd:float");
    EXPECT_EQ(getDatatypeName("http://www.w3.org/2001/XMLSchema#date"), "xsd:date");
    EXPECT_EQ(getDatatypeName("http://www.w3.org/1999/02/22-rdf-syntax-ns#langString"), "rdf:langString");
    EXPECT_EQ(getDatatypeName("http://example.org/XMLSchema#int"), "http://example.org/XMLSchema#int");
}
