// Change counter over the kernel's futex.
#include "platform/Event.h"

#include "platform/Futex.h"

namespace kivmp4::platform {
namespace {

constexpr int kSpins = 400;  // some microseconds: about as long as a block takes that is in the host's cache

}  // namespace

void Event::Notify() {
    changes.fetch_add(1);
    if (waiters.load() > 0)
        FutexWake(changes, INT_MAX);
}

void Event::Wait(uint32_t seen, uint32_t microseconds) {
    for (int spin = 0; spin < kSpins; ++spin) {
        if (Changes() != seen)
            return;
        SpinPause();
    }
    const timespec limit = {static_cast<time_t>(microseconds / 1000000), static_cast<long>(microseconds % 1000000) * 1000};
    waiters.fetch_add(1);
    if (changes.load() == seen)
        FutexWait(changes, seen, &limit);
    waiters.fetch_sub(1);
}

}  // namespace kivmp4::platform
