#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kavix {

/// A value of a datatype, in lexical or in binary form.
///
///   lexical form: data points at the characters, followed by a NUL; dataSize counts the NUL
///   binary form:  data points at the value in native byte order; dataSize is 8 for an integer datatype and
///                 xsd:double, 4 for xsd:float, 16 for xsd:decimal
///
/// If data points into the value's own buffer, copies point into theirs; otherwise the bytes are not owned and must
/// outlive the value. A default-constructed value is all zeroes. Not synchronised.
class ResourceValue {

public:

    /// The size of the inline buffer: enough for every binary form.
    static constexpr size_t BUFFER_SIZE = 16;

    uint8_t datatypeID = 0;
    const uint8_t* data = nullptr;
    uint64_t dataSize = 0;
    const uint8_t* auxiliaryData = nullptr;
    uint64_t auxiliaryDataSize = 0;
    alignas(8) uint8_t buffer[BUFFER_SIZE] = {};

    ResourceValue() noexcept = default;

    ResourceValue(const ResourceValue& other) noexcept { copyFrom(other); }

    ResourceValue& operator=(const ResourceValue& other) noexcept {
        if (this != &other)
            copyFrom(other);
        return *this;
    }

    ~ResourceValue() = default;

    /// Makes this value the binary form in its own buffer, which the caller fills: size bytes, at most BUFFER_SIZE.
    void setBinaryForm(uint8_t newDatatypeID, uint64_t size) noexcept {
        datatypeID = newDatatypeID;
        data = buffer;
        dataSize = size;
        auxiliaryData = nullptr;
        auxiliaryDataSize = 0;
    }

    /// Makes this value a binary form that is copied into its own buffer.
    template<typename T>
    void setBinaryValue(uint8_t newDatatypeID, const T& value) noexcept {
        static_assert(sizeof(T) <= BUFFER_SIZE);
        setBinaryForm(newDatatypeID, sizeof(T));
        std::memcpy(buffer, &value, sizeof(T));
    }

    /// The value in binary form; T must be the type of the datatype.
    template<typename T>
    T getBinaryValue() const noexcept {
        T value;
        std::memcpy(&value, data, sizeof(T));
        return value;
    }

private:

    void copyFrom(const ResourceValue& other) noexcept {
        datatypeID = other.datatypeID;
        data = other.data == other.buffer ? buffer : other.data;
        dataSize = other.dataSize;
        auxiliaryData = other.auxiliaryData;
        auxiliaryDataSize = other.auxiliaryDataSize;
        std::memcpy(buffer, other.buffer, BUFFER_SIZE);
    }
};

}
