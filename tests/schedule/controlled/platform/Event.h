// Takes the place of the platform's: waits end by a notification after the lock was given up, by time, or without cause.
#pragma once

#include "platform/LightMutex.h"

namespace kivmp4::platform {

constexpr int64_t kNever = INT64_MAX;

class Event {
public:
    void Wait(LightMutex& lock, int64_t deadline) {
        test::Scheduler& scheduler = test::Scheduler::Current();
        if (!lock.IsHeld())
            scheduler.Fail("a thread waits without the lock");
        const uint32_t seen = changes;
        lock.Unlock();
        if (changes == seen && !scheduler.Chance(16))
            scheduler.Block(this, deadline);
        lock.Lock();
    }
    void Notify() {
        changes++;
        test::Scheduler::Current().WakeAll(this);
        test::Scheduler::Current().Step();
    }

private:
    uint32_t changes = 0;
};

}  // namespace kivmp4::platform
