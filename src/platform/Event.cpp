// Change counter over the kernel's futex.
#include "platform/Event.h"

#include <algorithm>

#include "platform/Spin.h"

namespace kivmp4::platform {

void Event::Notify() {
    changes.fetch_add(1);
    if (waiters.load() > 0)
        FutexWake(changes, INT_MAX);
}

void Event::Wait(uint32_t seen, uint32_t microseconds) {
    if (SpinUntil([&] { return Changes() != seen; }))
        return;
    const int64_t left = std::max<int64_t>(int64_t{microseconds} * 1000 - kSpinNanoseconds, 0);  // of it the spin took part
    const timespec limit = {static_cast<time_t>(left / 1000000000), static_cast<long>(left % 1000000000)};
    waiters.fetch_add(1);
    if (changes.load() == seen)
        FutexWait(changes, seen, &limit);
    waiters.fetch_sub(1);
}

}  // namespace kivmp4::platform
