#pragma once

#include "core/platform/system/Unmovable.h"

#include <cstdint>
#include <string>

namespace kavix::numdict {

/// The bytes of a file, mapped for reading. The file must not be shortened while it is mapped; stores are never changed
/// in place.
class MappedFile : private Unmovable {

public:

    /// @throws SystemFailure  the file cannot be read
    explicit MappedFile(const std::string& path);

    ~MappedFile();

    const uint8_t* getData() const noexcept { return m_data; }

    uint64_t getLength() const noexcept { return m_length; }

private:

    const uint8_t* m_data;
    uint64_t m_length;
};

}
