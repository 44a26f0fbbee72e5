// Lightweight mutex over the kernel's futex: no system call unless two threads meet.
#include "platform/LightMutex.h"

#include "platform/Futex.h"

namespace kivmp4::platform {
namespace {

constexpr uint32_t kFree = 0, kHeld = 1, kContended = 2;
constexpr uint32_t kCreated = 0x4B4D5458;
constexpr int kSpins = 400;  // a lock here is mostly held for less than a system call takes

}  // namespace

int32_t LightMutex::Create(const char* label) {
    name = label;
    state.store(kFree, std::memory_order_relaxed);
    created.store(kCreated, std::memory_order_release);
    return 0;
}

int32_t LightMutex::Lock() {
    if (created.load(std::memory_order_acquire) != kCreated)
        return -1;
    for (int spin = 0; spin < kSpins; ++spin) {
        uint32_t expected = kFree;
        if (state.compare_exchange_weak(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed))
            return 0;
        if (expected == kContended)
            break;
        SpinPause();
    }
    while (state.exchange(kContended, std::memory_order_acquire) != kFree)
        FutexWait(state, kContended, nullptr);
    return 0;
}

int32_t LightMutex::Unlock() {
    if (created.load(std::memory_order_relaxed) != kCreated)
        return -1;
    if (state.exchange(kFree, std::memory_order_release) == kContended)
        FutexWake(state, 1);
    return 0;
}

int32_t LightMutex::Delete() {
    if (created.exchange(0, std::memory_order_acq_rel) != kCreated)
        return -1;
    name = nullptr;
    return 0;
}

}  // namespace kivmp4::platform
