// Lightweight mutex over the kernel's futex: no system call unless two threads meet.
#include "platform/LightMutex.h"

#include "platform/Spin.h"

namespace kivmp4::platform {

int32_t LightMutex::Create(const char* label) {
    name = label;
    return 0;
}

// Unlock looks for sleepers without the barrier that would show it each one in time, since that costs as much as the
// whole lock. So a sleeper looks up now and then.
void LightMutex::LockContended() {
    constexpr timespec kLookUp = {0, 200000};
    const auto taken = [this] { return state.load(std::memory_order_relaxed) == kFree && Take(); };
    if (SpinUntil(taken))  // a lock here is mostly held for less than a system call takes
        return;
    sleepers.fetch_add(1);
    while (!taken())
        FutexWait(state, kHeld, &kLookUp);
    sleepers.fetch_sub(1);
}

void LightMutex::WakeOne() { FutexWake(state, 1); }

}  // namespace kivmp4::platform
