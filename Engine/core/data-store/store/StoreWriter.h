#pragma once

#include "core/data-store/dictionary/ResourceIDWidth.h"
#include "core/data-store/store/StoreFormat.h"
#include "core/platform/stream/OutputStream.h"
#include "core/platform/system/Unmovable.h"

#include <functional>
#include <string_view>
#include <vector>

namespace kavix {

/// The frame of a store that is being saved. The section table comes first and has the length and the checksum of each
/// section, so every section is produced twice: when it is added, to be measured, and when the store is written. One
/// thread at a time.
class StoreWriter : private Unmovable {

public:

    /// Writes the bytes of a section: the same bytes each time.
    using WriteSection = std::function<void(OutputStream& output)>;

    explicit StoreWriter(ResourceIDWidth resourceIDWidth) noexcept :
        m_resourceIDWidth(resourceIDWidth) { }

    /// Adds a section after the others.
    /// @param name  at most 16 characters
    /// @throws what write() throws, and std::bad_alloc: the section was not added
    void addSection(std::string_view name, WriteSection write);

    /// Writes the store and flushes the stream.
    /// @throws what the stream and the sections throw: what was written is not a valid store
    void write(OutputStream& output) const;

private:

    const ResourceIDWidth m_resourceIDWidth;
    std::vector<StoreFormat::Section> m_sections; // with offsets relative to the first section
    std::vector<WriteSection> m_writers; // one for each
};

}
