// Whether to spin, and for how long.
#include "platform/Spin.h"

namespace kivmp4::platform {

bool SpinHelps() {
    static std::atomic<long> processors{0};  // asking takes longer than the spin does
    long count = processors.load(std::memory_order_relaxed);
    if (count == 0) {
        count = sysconf(_SC_NPROCESSORS_ONLN);
        processors.store(count, std::memory_order_relaxed);
    }
    return count > 1;
}

int64_t MonotonicNanoseconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

}  // namespace kivmp4::platform
