// Lightweight mutex: a lock of 32 bytes that lives inside the object it guards.
#pragma once

#include <atomic>
#include <cstdint>

namespace kivmp4::platform {

/// All bytes zero means "not created"; locking such a one fails instead of blocking. Not recursive.
/// Zeroed memory is a valid LightMutex, so objects from the module heap hold them without construction.
class alignas(8) LightMutex {
public:
    /// @param name  kept by pointer, for whoever looks at the lock in a debugger
    /// @return negative on failure, as for all operations here
    int32_t Create(const char* name);
    int32_t Lock() {
        if (created.load(std::memory_order_acquire) != kCreated)
            return -1;
        if (!Take())
            LockContended();
        return 0;
    }
    int32_t Unlock() {
        if (created.load(std::memory_order_relaxed) != kCreated)
            return -1;
        state.store(kFree, std::memory_order_release);
        if (sleepers.load(std::memory_order_relaxed) != 0)
            WakeOne();
        return 0;
    }
    int32_t Delete();

private:
    static constexpr uint32_t kFree = 0, kHeld = 1;
    static constexpr uint32_t kCreated = 0x4B4D5458;

    bool Take() {
        uint32_t expected = kFree;
        return state.compare_exchange_strong(expected, kHeld, std::memory_order_acquire, std::memory_order_relaxed);
    }
    void LockContended();
    void WakeOne();

    std::atomic<uint32_t> state{kFree};
    std::atomic<uint32_t> sleepers{0};
    std::atomic<uint32_t> created{0};
    const char* name = nullptr;
    [[maybe_unused]] unsigned char rest[sizeof(char*) == 8 ? 8 : 16] = {};
};

static_assert(sizeof(LightMutex) == 32 && alignof(LightMutex) == 8);

}  // namespace kivmp4::platform
