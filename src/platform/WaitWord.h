// A word of memory that threads wait on until another thread changes it; what locks and events are made of.
#pragma once

#include <atomic>
#include <cstdint>

namespace kivmp4::platform {

/// A deadline that never comes.
constexpr int64_t kNever = INT64_MAX;

/// Zeroed memory is a valid WaitWord. `sleepers` is what makes a wake-up certain: a waiter counts itself before the
/// kernel looks at the value for the last time, and whoever changes the value looks at the count afterwards. With a full
/// barrier between the two steps on both sides, either the waiter is seen and woken, or it sees the new value and does
/// not sleep. The barrier of the side that changes the value would cost as much as all the rest of a lock, so the waiter,
/// who is about to sleep, lets the kernel set both; where the kernel cannot, each change has its own.
class WaitWord {
public:
    uint32_t Load() const { return value.load(std::memory_order_relaxed); }
    /// Acquires what was released by the last change. @return whether the value was `expected` and is `next` now
    bool Exchange(uint32_t expected, uint32_t next) {
        return value.compare_exchange_strong(expected, next, std::memory_order_acquire, std::memory_order_relaxed);
    }

    /// Returns when the value differs, at the deadline (see MonotonicTime), or without cause: callers test again.
    void WaitWhile(uint32_t expected, int64_t deadline);

    /// Changes the value and wakes so many sleepers; a system call only when somebody sleeps.
    void Store(uint32_t next, int threads) {
        if (waitersSetBarriers) {
            value.store(next, std::memory_order_release);
            std::atomic_signal_fence(std::memory_order_seq_cst);  // the compiler keeps the order too
        } else {
            value.exchange(next);
        }
        if (sleepers.load() != 0)
            WakeSleepers(threads);
    }

private:
    static const bool waitersSetBarriers;  // the kernel can; known before any lock is used

    std::atomic<uint32_t> value{0};
    std::atomic<uint32_t> sleepers{0};

    bool SpinWhile(uint32_t expected, int64_t deadline) const;
    void WakeSleepers(int threads);
};

}  // namespace kivmp4::platform
