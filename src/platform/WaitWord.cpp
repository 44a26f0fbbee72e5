// Waiting over the kernel's futex, after a short spin.
#include "platform/WaitWord.h"

#include <linux/futex.h>
#include <linux/membarrier.h>
#include <linux/time_types.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/Clock.h"

namespace kivmp4::platform {
namespace {

// The kernel's own layouts: the C library's timespec may be wider than the call takes.
#if defined(SYS_futex)
constexpr long kFutex = SYS_futex;
using KernelTime = __kernel_old_timespec;
#else
constexpr long kFutex = SYS_futex_time64;
using KernelTime = __kernel_timespec;
#endif

// The one spin of the module: going to sleep and being woken costs the two threads about as long together, and a player
// whose file is in memory answers a read in a fifth of it.
constexpr int64_t kSpin = 50000;  // nanoseconds

void Pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    __asm__ volatile("yield");
#endif
}

}  // namespace

const bool WaitWord::waitersSetBarriers = syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;

// @return whether the value has changed
bool WaitWord::SpinWhile(uint32_t expected, int64_t deadline) const {
    constexpr int kTestsPerRound = 16;
    const int64_t now = MonotonicTime();
    const int64_t end = deadline - now < kSpin ? deadline : now + kSpin;
    do {
        for (int test = 0; test < kTestsPerRound; ++test) {
            if (value.load() != expected)
                return true;
            Pause();
        }
        sched_yield();  // whoever is waited for may wait for this very processor
    } while (MonotonicTime() < end);
    return false;
}

void WaitWord::WaitWhile(uint32_t expected, int64_t deadline) {
    if (SpinWhile(expected, deadline))
        return;
    const KernelTime time = {static_cast<decltype(KernelTime::tv_sec)>(deadline / 1000000000),
                             static_cast<decltype(KernelTime::tv_nsec)>(deadline % 1000000000)};
    sleepers.fetch_add(1);
    if (waitersSetBarriers)
        syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0);
    syscall(kFutex, &value, FUTEX_WAIT_BITSET_PRIVATE, expected, deadline == kNever ? nullptr : &time, nullptr,
            FUTEX_BITSET_MATCH_ANY);
    sleepers.fetch_sub(1);
}

void WaitWord::WakeSleepers(int threads) { syscall(kFutex, &value, FUTEX_WAKE_PRIVATE, threads, nullptr, nullptr, 0); }

}  // namespace kivmp4::platform
