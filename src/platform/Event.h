// Waiting, with a lock, for a change of the state that the lock guards: the module's one way to wait for its own threads.
#pragma once

#include "platform/LightMutex.h"
#include "platform/WaitWord.h"

namespace kivmp4::platform {

/// Belongs to one lock. A waiter tests its condition and calls Wait with the lock held; whoever changes the state calls
/// Notify with the lock held. So no change can fall between a test and its wait. Zeroed memory is a valid Event.
class Event {
public:
    /// Gives the lock up while it waits and holds it again on return: after a Notify, at the deadline, or without cause.
    void Wait(LightMutex& lock, int64_t deadline) {
        const uint32_t seen = changes.Load();
        lock.Unlock();
        changes.WaitWhile(seen, deadline);
        lock.Lock();
    }

    /// Ends all waits. No system call unless somebody sleeps.
    void Notify() { changes.Store(changes.Load() + 1, INT32_MAX); }

private:
    WaitWord changes;  // the value counts calls of Notify
};

}  // namespace kivmp4::platform
