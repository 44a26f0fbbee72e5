// Takes the place of the platform's: each access is a step of the scheduler, which can run another thread first.
#pragma once

#include "schedule/Scheduler.h"

namespace kivmp4::platform {

template <typename T>
class Atomic {
public:
    Atomic(T initial) : value(initial) {}
    Atomic(const Atomic&) = delete;
    Atomic& operator=(const Atomic&) = delete;

    T load() const {
        test::Scheduler::Current().Step();
        return value;
    }
    operator T() const { return load(); }
    T exchange(T next) {
        test::Scheduler::Current().Step();
        std::swap(value, next);
        return next;
    }
    T fetch_add(T more) {
        const T before = load();
        value = static_cast<T>(before + more);
        return before;
    }
    T fetch_sub(T less) { return fetch_add(static_cast<T>(-less)); }
    T operator=(T next) {
        exchange(next);
        return next;
    }

private:
    T value;
};

}  // namespace kivmp4::platform
