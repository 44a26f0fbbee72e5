// Lets some of a function's calls fail.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace kivmp4::test {

struct FailingCall {
    static constexpr uint32_t kForEver = std::numeric_limits<uint32_t>::max();
    uint32_t first = kForEver, count = kForEver;  // the calls that fail, numbered from 0
    std::atomic<uint32_t> calls = 0;

    bool Fails() {
        const uint32_t call = calls++;
        return call >= first && call - first < count;
    }
};

/// More than 1 where the tests are slow: under an emulator only each n-th failure is tried, on files so much smaller.
inline uint32_t SweepStep() {
    const char* step = std::getenv("KIVMP4_SWEEP_STEP");
    return step ? static_cast<uint32_t>(std::atoi(step)) : 1;
}

}  // namespace kivmp4::test
