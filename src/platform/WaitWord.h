// A word of memory that threads wait on until another thread changes it; what locks and events are made of.
#pragma once

#include <atomic>
#include <cstdint>

namespace kivmp4::platform {

/// A deadline that never comes.
constexpr int64_t kNever = INT64_MAX;

/// Zeroed memory is a valid WaitWord. `sleepers` is what makes a wake-up certain: a waiter counts itself before the
/// kernel looks at the value for the last time, and whoever changes the value looks at the count afterwards. Both steps
/// are sequentially consistent, so either the waiter is seen and woken, or it sees the new value and does not sleep.
struct WaitWord {
    std::atomic<uint32_t> value{0};
    std::atomic<uint32_t> sleepers{0};

    /// Returns when the value differs, at the deadline (see MonotonicTime), or without cause: callers test again.
    void WaitWhile(uint32_t expected, int64_t deadline);

    /// To be called after each change of the value; a system call only when somebody sleeps.
    void Wake(int threads) {
        if (sleepers.load() != 0)
            WakeSleepers(threads);
    }

private:
    bool SpinWhile(uint32_t expected, int64_t deadline) const;
    void WakeSleepers(int threads);
};

}  // namespace kivmp4::platform
