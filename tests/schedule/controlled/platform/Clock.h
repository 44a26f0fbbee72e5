// Takes the place of the platform's: the scheduler's time.
#pragma once

#include "schedule/Scheduler.h"

namespace kivmp4::platform {

inline int64_t MonotonicTime() { return test::Scheduler::Current().Now(); }

inline void DelayMicroseconds(uint32_t microseconds) {
    test::Scheduler& scheduler = test::Scheduler::Current();
    scheduler.Block(nullptr, scheduler.Now() + int64_t{microseconds} * 1000);
}

}  // namespace kivmp4::platform
