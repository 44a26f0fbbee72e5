// Threads known by id: create, start, wait for the end, delete; and the delay of the calling thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kivmp4::platform {

/// @return the thread's exit status
using ThreadEntry = int32_t (*)(void* argument);

/// @param name       shown by the host's tools, as many letters of it as the host takes
/// @param priority   a wish: hosts without fixed priorities ignore it
/// @param stackSize  in bytes; raised to what the host needs
/// @return an id above 0, or a negative number
int32_t ThreadCreate(const char* name, ThreadEntry entry, int32_t priority, size_t stackSize);

/// @param argument  handed to the entry; must live as long as the entry uses it
/// @return 0, or a negative number when the host has no thread to give
int32_t ThreadStart(int32_t thread, void* argument);

/// Waits for the thread's end, without time limit. @return 0; negative for a thread that was never started
int32_t ThreadWait(int32_t thread);

/// Gives the id back. A started thread must have been waited for.
int32_t ThreadDelete(int32_t thread);

/// Suspends the calling thread for at least this many microseconds.
void DelayMicroseconds(uint32_t microseconds);

}  // namespace kivmp4::platform
