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
    int32_t Lock();
    int32_t Unlock();
    int32_t Delete();

private:
    std::atomic<uint32_t> state{0};  // 0 free, 1 held, 2 held and somebody sleeps on it
    std::atomic<uint32_t> created{0};
    const char* name = nullptr;
    [[maybe_unused]] unsigned char rest[32 - 2 * sizeof(uint32_t) - sizeof(char*)] = {};
};

static_assert(sizeof(LightMutex) == 32 && alignof(LightMutex) == 8);

}  // namespace kivmp4::platform
