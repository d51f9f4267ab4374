#include "core/platform/system/VMPageSize.h"

#include <unistd.h>

namespace kavix {

size_t getVMPageSize() noexcept {
    static const size_t s_pageSize = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    return s_pageSize;
}

}
