#include "core/platform/collections/ThreadContext.h"

namespace kavix {

ThreadContext::~ThreadContext() {
    ::pthread_cond_destroy(&m_condition);
    ::pthread_mutex_destroy(&m_mutex);
}

void ThreadContext::waitUntilHandedOver() noexcept {
    ::pthread_mutex_lock(&m_mutex);
    while (m_releasedFlag == 0)
        ::pthread_cond_wait(&m_condition, &m_mutex);
    m_releasedFlag = 0;
    ::pthread_mutex_unlock(&m_mutex);
}

void ThreadContext::handOver() noexcept {
    ::pthread_mutex_lock(&m_mutex);
    m_releasedFlag = 1;
    ::pthread_cond_signal(&m_condition);
    ::pthread_mutex_unlock(&m_mutex);
}

uint64_t ThreadContext::handOverWith(uint64_t result) noexcept {
    handOver();
    return result;
}

}
