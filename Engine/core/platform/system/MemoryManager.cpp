#include "core/platform/system/MemoryManager.h"

namespace kavix {

bool MemoryManager::trySetTotalBytes(uint64_t totalBytes) noexcept {
    uint64_t oldTotalBytes = m_totalBytes.load(std::memory_order_relaxed);
    for (;;) {
        const uint64_t takenBytes = totalBytes < oldTotalBytes ? oldTotalBytes - totalBytes : 0;
        uint64_t freeBytes = m_freeBytes.load(std::memory_order_relaxed);
        do {
            if (takenBytes > freeBytes)
                return false;
        } while (!m_freeBytes.compare_exchange_weak(freeBytes, freeBytes - takenBytes, std::memory_order_relaxed));
        if (m_totalBytes.compare_exchange_strong(oldTotalBytes, totalBytes, std::memory_order_relaxed)) {
            // The additional bytes become free only after the total has grown, so free never exceeds the total.
            if (totalBytes > oldTotalBytes)
                release(totalBytes - oldTotalBytes);
            return true;
        }
        release(takenBytes); // another thread has changed the total
    }
}

}
