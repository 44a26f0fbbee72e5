// Waiting for a change of state that another thread makes, for a limited time.
#pragma once

#include <atomic>
#include <cstdint>

namespace kivmp4::platform {

/// Counts changes. A waiter notes the count, tests the state, and then waits until the count has moved on: a change in
/// between ends the wait at once. Zeroed memory is a valid Event.
class Event {
public:
    uint32_t Changes() const { return changes.load(std::memory_order_acquire); }

    /// To be called after the state has changed. Costs no system call while nobody waits.
    void Notify();

    /// Spins for a moment, then sleeps. @return after a change since `seen`, or after about that many microseconds
    void Wait(uint32_t seen, uint32_t microseconds);

private:
    std::atomic<uint32_t> changes{0};
    std::atomic<uint32_t> waiters{0};
};

}  // namespace kivmp4::platform
