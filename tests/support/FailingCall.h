// Lets some of a function's calls fail.
#pragma once

#include <atomic>
#include <cstdint>
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

}  // namespace kivmp4::test
