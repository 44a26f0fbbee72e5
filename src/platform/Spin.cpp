// The clock of spins.
#include "platform/Spin.h"

namespace kivmp4::platform {

int64_t MonotonicNanoseconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

}  // namespace kivmp4::platform
