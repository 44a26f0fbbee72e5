// The kernel's wait on a word of memory; for this folder alone.
#pragma once

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstdint>

namespace kivmp4::platform {

#if defined(SYS_futex)
constexpr long kFutex = SYS_futex;
#else
constexpr long kFutex = SYS_futex_time64;
#endif

/// Sleeps while the word holds `expected`; wakes up without cause at times.
inline void FutexWait(std::atomic<uint32_t>& word, uint32_t expected, const timespec* limit) {
    syscall(kFutex, &word, FUTEX_WAIT_PRIVATE, expected, limit, nullptr, 0);
}

inline void FutexWake(std::atomic<uint32_t>& word, int waiters) {
    syscall(kFutex, &word, FUTEX_WAKE_PRIVATE, waiters, nullptr, nullptr, 0);
}

/// One step of a spin: lets the processor's other thread go first.
inline void SpinPause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    __asm__ volatile("yield");
#endif
}

}  // namespace kivmp4::platform
