#pragma once

#include "core/platform/system/Unmovable.h"

#include <atomic>
#include <cstdint>

namespace kavix {

/// Excludes writers from each other: at most one transaction at a time, and none while single values are being entered,
/// each of which is a transaction of its own.
///
///   state        meaning                                                 changed by                     to
///   n, from 0    open; n single values are being entered                 tryEnterSingle, leaveSingle    n + 1, n - 1
///   0                                                                    tryClose                       CLOSED
///   CLOSED       for a moment: a snapshot is taken or a transaction      open                           0
///                begins                                                  beginTransaction               TRANSACTION
///   TRANSACTION  a transaction is running                                open                           0
///
/// Orders    acquire on entering and closing, release on leaving and opening: a thread that closes the gate observes
///           everything entered before; a thread that enters observes everything the transaction left.
/// Progress  lock-free; no operation waits. While a thread announces that it waits to close the gate, single values
///           yield, so that a steady stream of them cannot keep it waiting; but only for a limited time, so that a
///           steady stream of closing threads cannot keep single values waiting either.
class WriterGate : private Unmovable {

public:

    /// Keeps single values out while the caller waits for those inside to leave.
    void beginWaitingToClose() noexcept { m_waitingToClose.fetch_add(1, std::memory_order_relaxed); } // a hint only

    void endWaitingToClose() noexcept { m_waitingToClose.fetch_sub(1, std::memory_order_relaxed); }

    /// Enters for one single value, unless the gate is closed, a transaction is running, or, if it yields, a thread
    /// waits to close the gate.
    bool tryEnterSingle(bool yields = true) noexcept {
        if (yields && m_waitingToClose.load(std::memory_order_relaxed) != 0) // missing it delays the other once
            return false;
        uint64_t state = m_state.load(std::memory_order_relaxed); // a first look only; the exchange synchronises
        do {
            if (state >= CLOSED)
                return false;
            // Acquire. Pairs with the release in open().
        } while (
            !m_state.compare_exchange_weak(state, state + 1, std::memory_order_acquire, std::memory_order_relaxed));
        return true;
    }

    void leaveSingle() noexcept {
        // Release. Pairs with the acquire in tryClose().
        m_state.fetch_sub(1, std::memory_order_release);
    }

    /// Closes the gate if it is open and no single value is inside.
    bool tryClose() noexcept {
        uint64_t expected = 0;
        // Acquire. Pairs with the releases in leaveSingle() and open().
        return m_state.compare_exchange_strong(expected, CLOSED, std::memory_order_acquire, std::memory_order_relaxed);
    }

    /// Turns a gate that the caller has closed into one with a running transaction.
    void beginTransaction() noexcept {
        // Release. Pairs with the acquire in isInTransaction(): a thread that observes the transaction also observes
        // what was prepared for it.
        m_state.store(TRANSACTION, std::memory_order_release);
    }

    bool isInTransaction() const noexcept {
        // Acquire. Pairs with the release in beginTransaction().
        return m_state.load(std::memory_order_acquire) == TRANSACTION;
    }

    /// Opens a gate that the caller has closed, or in which its transaction was running.
    void open() noexcept {
        // Release. Pairs with the acquires in tryEnterSingle() and tryClose().
        m_state.store(0, std::memory_order_release);
    }

private:

    static constexpr uint64_t TRANSACTION = UINT64_MAX;
    static constexpr uint64_t CLOSED = TRANSACTION - 1;

    std::atomic<uint64_t> m_state{0};
    std::atomic<uint64_t> m_waitingToClose{0};
};

}
