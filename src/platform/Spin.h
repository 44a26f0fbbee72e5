// A short wait that costs no system call.
#pragma once

#include <sched.h>

#include <cstdint>

#include "platform/Futex.h"

namespace kivmp4::platform {

/// How long a wait may keep its processor busy before it sleeps: a sleep and its wake-up together take about as long.
constexpr int64_t kSpinNanoseconds = 50000;
constexpr int64_t kShortSpinNanoseconds = 2000;

int64_t MonotonicNanoseconds();

/// Tests `condition` until it holds or the time is over. Each place that calls it learns: where a long spin was in vain,
/// because the other side is slow or waits for this very processor, the next ones are short.
/// @return what the condition answered last
template <typename Condition>
bool SpinUntil(Condition condition) {
    constexpr int kTestsPerLook = 16;  // at the clock
    constexpr uint32_t kShortSpins = 15;
    static std::atomic<uint32_t> shortSpins{0};  // a guess: it does not matter when two threads change it at once
    if (condition())
        return true;
    const uint32_t left = shortSpins.load(std::memory_order_relaxed);
    const int64_t end = MonotonicNanoseconds() + (left ? kShortSpinNanoseconds : kSpinNanoseconds);
    do {
        for (int test = 0; test < kTestsPerLook; ++test) {
            SpinPause();
            if (condition())
                return true;
        }
        sched_yield();  // whoever is waited for may wait for this very processor
    } while (MonotonicNanoseconds() < end);
    shortSpins.store(left ? left - 1 : kShortSpins, std::memory_order_relaxed);
    return false;
}

}  // namespace kivmp4::platform
