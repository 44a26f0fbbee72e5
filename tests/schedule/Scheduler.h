// Runs the threads of one program one at a time, in an order that a seed decides, and in a time of its own.
#pragma once

#include <ucontext.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace kivmp4::test {

/// Probabilistic concurrency testing: each thread has a random priority, the highest one that can run does, and at a few
/// random steps the running thread's priority falls below all others. A fault that needs d such orderings is found with
/// a probability of at least 1 / (threads * steps ^ (d - 1)) in each schedule. The same seed makes the same schedule.
///
/// Threads are fibers, so a schedule is exact and costs no system call but those of switching contexts. Every lock, wait,
/// notification, delay and access to an atomic value is a step. Time passes only while no thread can run.
class Scheduler {
public:
    /// @param depth     orderings to change, from 1 on
    /// @param expected  steps that a schedule has, as far as known
    Scheduler(uint32_t seed, uint32_t depth, uint64_t expected);
    ~Scheduler();
    static Scheduler& Current();

    /// Runs the body and all threads that it starts until each has ended. @return what went wrong; empty if nothing did
    std::string Run(std::function<void()> body);

    // For the threads themselves.
    uint32_t Start(std::function<void()> body);
    uint32_t Self() const { return running; }
    void Join(uint32_t thread);
    void Step();
    /// Until somebody calls WakeAll for the same thing, or until the deadline.
    void Block(const void* thing, int64_t deadline);
    void WakeAll(const void* thing);
    int64_t Now() const { return now; }
    bool Chance(uint32_t one) { return random() % one == 0; }
    void Fail(const std::string& what);

    uint64_t Steps() const { return steps; }

private:
    struct Fiber {
        ucontext_t context;
        std::unique_ptr<char[]> stack;
        std::function<void()> body;
        uint64_t priority;
        bool ended = false;
        bool blocked = false;
        const void* thing = nullptr;
        int64_t deadline = INT64_MAX;
    };
    static void Enter();
    uint32_t Highest() const;
    bool PassTime();
    void SwitchTo(uint32_t thread);
    void SwitchBack();

    std::mt19937 random;
    std::vector<uint64_t> changes;  // the steps at which the running thread falls back
    std::vector<std::unique_ptr<Fiber>> fibers;
    ucontext_t main;
    void* mainFake = nullptr;
    const void* mainStack = nullptr;
    size_t mainSize = 0;
    uint32_t running = 0;
    uint64_t steps = 0, fallen = 0;
    int64_t now = 1000000;
    std::string failure;
};

}  // namespace kivmp4::test
