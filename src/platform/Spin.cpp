// Whether to spin, and for how long.
#include "platform/Spin.h"

namespace kivmp4::platform {

bool SpinHelps() {
    static std::atomic<int> processors{0};  // asking takes as long as many a spin
    int count = processors.load(std::memory_order_relaxed);
    if (count == 0) {
        cpu_set_t usable;
        CPU_ZERO(&usable);
        count = sched_getaffinity(0, sizeof(usable), &usable) == 0 ? CPU_COUNT(&usable) : 2;
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
