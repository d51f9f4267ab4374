#pragma once

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace kavix::test {

/// A page of text between two pages that cannot be accessed: a read outside the text, on the side where it touches the
/// end of the page, is a fault.
class GuardedText {

public:

    GuardedText() :
        m_pageSize(static_cast<size_t>(sysconf(_SC_PAGESIZE))) {
        void* const pages = mmap(nullptr, 3 * m_pageSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        m_pages = pages == MAP_FAILED ? nullptr : static_cast<char*>(pages);
        if (m_pages == nullptr || mprotect(getPage(), m_pageSize, PROT_READ | PROT_WRITE) != 0)
            ADD_FAILURE() << "no pages";
    }

    ~GuardedText() {
        if (m_pages != nullptr)
            munmap(m_pages, 3 * m_pageSize);
    }

    GuardedText(const GuardedText&) = delete;
    GuardedText& operator=(const GuardedText&) = delete;

    /// The text, at most a page of it, with nothing after it. The pointer is valid until the next call.
    const char* placeAtEnd(const std::string& text) {
        return static_cast<const char*>(std::memcpy(getPage() + m_pageSize - text.size(), text.data(), text.size()));
    }

    /// The text, at most a page of it, with nothing before it. The pointer is valid until the next call.
    const char* placeAtStart(const std::string& text) {
        return static_cast<const char*>(std::memcpy(getPage(), text.data(), text.size()));
    }

private:

    char* getPage() const { return m_pages + m_pageSize; }

    const size_t m_pageSize;
    char* m_pages;
};

}
