// Lightweight mutex over the kernel's futex: no system call unless two threads meet.
#include "platform/LightMutex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace kivmp4::platform {
namespace {

constexpr uint32_t kFree = 0, kHeld = 1, kContended = 2;
constexpr uint32_t kCreated = 0x4B4D5458;
constexpr int kSpins = 100;  // a lock here is mostly held for less than a system call takes

void Sleep(std::atomic<uint32_t>& state) {
    syscall(SYS_futex, &state, FUTEX_WAIT_PRIVATE, kContended, nullptr, nullptr, 0);
}

void WakeOne(std::atomic<uint32_t>& state) {
    syscall(SYS_futex, &state, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

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
    }
    while (state.exchange(kContended, std::memory_order_acquire) != kFree)
        Sleep(state);
    return 0;
}

int32_t LightMutex::Unlock() {
    if (created.load(std::memory_order_relaxed) != kCreated)
        return -1;
    if (state.exchange(kFree, std::memory_order_release) == kContended)
        WakeOne(state);
    return 0;
}

int32_t LightMutex::Delete() {
    if (created.exchange(0, std::memory_order_acq_rel) != kCreated)
        return -1;
    name = nullptr;
    return 0;
}

}  // namespace kivmp4::platform
