#pragma once

namespace kavix {

/// The namespace of the XML Schema datatypes.
inline constexpr char XSD_NAMESPACE[] = "http://www.w3.org/2001/XMLSchema#";

// The IRIs of the numeric datatypes.
inline constexpr char XSD_DECIMAL[] = "http://www.w3.org/2001/XMLSchema#decimal";
inline constexpr char XSD_INTEGER[] = "http://www.w3.org/2001/XMLSchema#integer";
inline constexpr char XSD_NON_NEGATIVE_INTEGER[] = "http://www.w3.org/2001/XMLSchema#nonNegativeInteger";
inline constexpr char XSD_NON_POSITIVE_INTEGER[] = "http://www.w3.org/2001/XMLSchema#nonPositiveInteger";
inline constexpr char XSD_NEGATIVE_INTEGER[] = "http://www.w3.org/2001/XMLSchema#negativeInteger";
inline constexpr char XSD_POSITIVE_INTEGER[] = "http://www.w3.org/2001/XMLSchema#positiveInteger";
inline constexpr char XSD_LONG[] = "http://www.w3.org/2001/XMLSchema#long";
inline constexpr char XSD_INT[] = "http://www.w3.org/2001/XMLSchema#int";
inline constexpr char XSD_SHORT[] = "http://www.w3.org/2001/XMLSchema#short";
inline constexpr char XSD_BYTE[] = "http://www.w3.org/2001/XMLSchema#byte";
inline constexpr char XSD_UNSIGNED_LONG[] = "http://www.w3.org/2001/XMLSchema#unsignedLong";
inline constexpr char XSD_UNSIGNED_INT[] = "http://www.w3.org/2001/XMLSchema#unsignedInt";
inline constexpr char XSD_UNSIGNED_SHORT[] = "http://www.w3.org/2001/XMLSchema#unsignedShort";
inline constexpr char XSD_UNSIGNED_BYTE[] = "http://www.w3.org/2001/XMLSchema#unsignedByte";

}
