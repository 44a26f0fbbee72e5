// Takes the place of the platform's: taking and giving are steps of the scheduler, and misuse is a failure.
#pragma once

#include "schedule/Scheduler.h"

namespace kivmp4::platform {

class LightMutex {
public:
    int32_t Create(const char*) { return 0; }
    void Lock() {
        test::Scheduler& scheduler = test::Scheduler::Current();
        scheduler.Step();
        if (IsHeld())
            scheduler.Fail("a thread takes a lock that it holds");
        while (holder != 0)
            scheduler.Block(this, INT64_MAX);
        holder = scheduler.Self() + 1;
    }
    void Unlock() {
        test::Scheduler& scheduler = test::Scheduler::Current();
        if (!IsHeld())
            scheduler.Fail("a thread gives a lock that it does not hold");
        holder = 0;
        scheduler.WakeAll(this);
        scheduler.Step();
    }
    void Delete() {
        if (holder != 0)
            test::Scheduler::Current().Fail("a lock is deleted while it is held");
    }
    bool IsHeld() const { return holder == test::Scheduler::Current().Self() + 1; }

private:
    uint32_t holder = 0;  // thread + 1; zeroed memory is a lock that nobody holds
};

class LockGuard {
public:
    explicit LockGuard(LightMutex& mutex) : lock(mutex) { lock.Lock(); }
    ~LockGuard() { lock.Unlock(); }

private:
    LightMutex& lock;
};

}  // namespace kivmp4::platform
