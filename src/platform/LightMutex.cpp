// Lightweight mutex over the kernel's futex: no system call unless two threads meet.
#include "platform/LightMutex.h"

#include "platform/Spin.h"

namespace kivmp4::platform {
int32_t LightMutex::Create(const char* label) {
    name = label;
    state.store(kFree, std::memory_order_relaxed);
    created.store(kCreated, std::memory_order_release);
    return 0;
}

void LightMutex::LockContended() {
    const auto taken = [this] {
        uint32_t expected = kFree;
        return state.load(std::memory_order_relaxed) == kFree &&
               state.compare_exchange_weak(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed);
    };
    if (SpinUntil(taken))  // a lock here is mostly held for less than a system call takes
        return;
    while (state.exchange(kContended, std::memory_order_acquire) != kFree)
        FutexWait(state, kContended, nullptr);
}

void LightMutex::WakeOne() { FutexWake(state, 1); }

int32_t LightMutex::Delete() {
    if (created.exchange(0, std::memory_order_acq_rel) != kCreated)
        return -1;
    name = nullptr;
    return 0;
}

}  // namespace kivmp4::platform
