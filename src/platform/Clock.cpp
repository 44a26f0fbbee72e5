// Clock and delay of the host.
#include "platform/Clock.h"

#include <time.h>

namespace kivmp4::platform {

int64_t MonotonicTime() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

void DelayMicroseconds(uint32_t microseconds) {
    timespec left = {static_cast<time_t>(microseconds / 1000000), static_cast<long>(microseconds % 1000000) * 1000};
    while (nanosleep(&left, &left) != 0) {  // a signal came
    }
}

}  // namespace kivmp4::platform
