// A thread of the module's own.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>

namespace kivmp4::platform {

using ThreadEntry = void (*)(void* argument);

class Thread {
public:
    /// @param name       shown by the host's tools, as many letters of it as the host takes
    /// @param argument   handed to the entry; must live as long as the entry uses it
    /// @param priority   a wish; this host has no fixed priorities and ignores it
    /// @param stackSize  in bytes; raised to 256 KiB, since the player's read function runs on it too
    /// @return false when the host has no thread to give
    [[nodiscard]] bool Start(const char* name, ThreadEntry entry, void* argument, int32_t priority, size_t stackSize);

    /// Waits for the entry's end, without time limit. Returns at once when no thread was started.
    void Join();

private:
    static constexpr size_t kHostNameSize = 16;  // with its zero byte; longer names are refused as a whole

    static void* Run(void* context);

    pthread_t handle = {};
    bool started = false;
    char name[kHostNameSize] = {};
    ThreadEntry entry = nullptr;
    void* argument = nullptr;
};

}  // namespace kivmp4::platform
