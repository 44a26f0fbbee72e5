// Lightweight mutex: a lock of 32 bytes that lives inside the object it guards.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/WaitWord.h"

namespace kivmp4::platform {

/// Not recursive. Zeroed memory is a lock that nobody holds, so objects from the module heap need not construct theirs.
class alignas(8) LightMutex {
public:
    /// @param name  kept by pointer, for whoever looks at the lock in a debugger
    /// @return negative on failure, which this host does not know
    int32_t Create(const char* name);
    void Lock() {
        if (!Take())
            LockContended();
    }
    void Unlock() { state.Store(kFree, 1); }
    /// Nobody may hold it. Leaves it zeroed.
    void Delete() { name = nullptr; }

private:
    static constexpr uint32_t kFree = 0, kHeld = 1;

    bool Take() { return state.Exchange(kFree, kHeld); }
    void LockContended();

    WaitWord state;
    const char* name = nullptr;
    [[maybe_unused]] unsigned char rest[32 - sizeof(WaitWord) - sizeof(char*)] = {};
};

static_assert(sizeof(LightMutex) == 32 && alignof(LightMutex) == 8);

/// Holds a lock for as long as it lives.
class LockGuard {
public:
    explicit LockGuard(LightMutex& mutex) : lock(mutex) { lock.Lock(); }
    ~LockGuard() { lock.Unlock(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    LightMutex& lock;
};

}  // namespace kivmp4::platform
