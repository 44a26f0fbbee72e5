// Fibers, priorities and virtual time.
#include "schedule/Scheduler.h"

#include <algorithm>

#include "platform/Poison.h"
#ifdef KIVMP4_ASAN
#include <sanitizer/common_interface_defs.h>
#endif

namespace kivmp4::test {
namespace {

constexpr uint32_t kNobody = UINT32_MAX;
constexpr uint64_t kTooManySteps = 100000;
constexpr size_t kStackSize = 128 * 1024;
constexpr uint64_t kFallen = 1 << 20;  // priorities of threads that fell back lie below, all others from here on

Scheduler* current = nullptr;
std::vector<std::unique_ptr<char[]>> spareStacks;

std::unique_ptr<char[]> TakeStack() {
    if (spareStacks.empty())
        return std::make_unique<char[]>(kStackSize);
    std::unique_ptr<char[]> stack = std::move(spareStacks.back());
    spareStacks.pop_back();
    return stack;
}

}  // namespace

Scheduler::Scheduler(uint32_t seed, uint32_t depth, uint64_t expected) : random(seed) {
    for (uint32_t change = 1; change < depth; change++)
        changes.push_back(random() % std::max<uint64_t>(expected, 1));
    current = this;
}

Scheduler::~Scheduler() {
    for (auto& fiber : fibers)
        spareStacks.push_back(std::move(fiber->stack));
    current = nullptr;
}

Scheduler& Scheduler::Current() { return *current; }

std::string Scheduler::Run(std::function<void()> body) {
    Start(std::move(body));
    const auto ended = [](const auto& fiber) { return fiber->ended; };
    while (failure.empty() && !std::all_of(fibers.begin(), fibers.end(), ended)) {
        const uint32_t next = Highest();
        if (next != kNobody)
            SwitchTo(next);
        else if (!PassTime())
            Fail("all threads wait for each other");
        if (steps > kTooManySteps)
            Fail("does not come to an end");
    }
    return failure;
}

uint32_t Scheduler::Start(std::function<void()> body) {
    auto fiber = std::make_unique<Fiber>();
    fiber->stack = TakeStack();
    fiber->body = std::move(body);
    fiber->priority = kFallen + random() % (1u << 30);
    getcontext(&fiber->context);
    fiber->context.uc_stack.ss_sp = fiber->stack.get();
    fiber->context.uc_stack.ss_size = kStackSize;
    fiber->context.uc_link = nullptr;
    makecontext(&fiber->context, Enter, 0);
    fibers.push_back(std::move(fiber));
    return static_cast<uint32_t>(fibers.size() - 1);
}

void Scheduler::Enter() {
#ifdef KIVMP4_ASAN
    __sanitizer_finish_switch_fiber(nullptr, &current->mainStack, &current->mainSize);
#endif
    Fiber& self = *current->fibers[current->running];
    self.body();
    self.ended = true;
    current->WakeAll(&self);
    current->SwitchBack();
}

void Scheduler::Join(uint32_t thread) {
    while (!fibers[thread]->ended)
        Block(fibers[thread].get(), INT64_MAX);
}

uint32_t Scheduler::Highest() const {
    uint32_t found = kNobody;
    for (uint32_t i = 0; i < fibers.size(); i++)
        if (!fibers[i]->ended && !fibers[i]->blocked &&
            (found == kNobody || fibers[i]->priority > fibers[found]->priority))
            found = i;
    return found;
}

// @return whether somebody can run now
bool Scheduler::PassTime() {
    int64_t next = INT64_MAX;
    for (const auto& fiber : fibers)
        if (!fiber->ended)
            next = std::min(next, fiber->deadline);
    if (next == INT64_MAX)
        return false;
    now = std::max(now, next);
    for (auto& fiber : fibers)
        if (fiber->blocked && fiber->deadline <= now)
            fiber->blocked = false;
    return true;
}

void Scheduler::SwitchTo(uint32_t thread) {
    running = thread;
    [[maybe_unused]] Fiber& fiber = *fibers[thread];
#ifdef KIVMP4_ASAN
    __sanitizer_start_switch_fiber(&mainFake, fiber.stack.get(), kStackSize);
#endif
    swapcontext(&main, &fiber.context);
#ifdef KIVMP4_ASAN
    __sanitizer_finish_switch_fiber(mainFake, nullptr, nullptr);
#endif
}

void Scheduler::SwitchBack() {
    Fiber& self = *fibers[running];
#ifdef KIVMP4_ASAN
    void* fake = nullptr;
    __sanitizer_start_switch_fiber(self.ended ? nullptr : &fake, mainStack, mainSize);
#endif
    swapcontext(&self.context, &main);
#ifdef KIVMP4_ASAN
    __sanitizer_finish_switch_fiber(fake, &mainStack, &mainSize);
#endif
}

void Scheduler::Step() {
    steps++;
    if (std::find(changes.begin(), changes.end(), steps) != changes.end())
        fibers[running]->priority = kFallen - ++fallen;
    if (Highest() != running || steps > kTooManySteps)
        SwitchBack();
}

void Scheduler::Block(const void* thing, int64_t deadline) {
    Fiber& self = *fibers[running];
    self.blocked = true;
    self.thing = thing;
    self.deadline = deadline;
    steps++;
    SwitchBack();
    self.deadline = INT64_MAX;
}

void Scheduler::WakeAll(const void* thing) {
    for (auto& fiber : fibers)
        if (fiber->blocked && fiber->thing == thing)
            fiber->blocked = false;
}

void Scheduler::Fail(const std::string& what) {
    if (failure.empty())
        failure = what;
}

}  // namespace kivmp4::test
