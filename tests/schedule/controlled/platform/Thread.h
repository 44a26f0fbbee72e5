// Takes the place of the platform's: one more thread of the scheduler.
#pragma once

#include <cstddef>

#include "schedule/Scheduler.h"

namespace kivmp4::platform {

using ThreadEntry = void (*)(void* argument);

class Thread {
public:
    [[nodiscard]] bool Start(const char*, ThreadEntry entry, void* argument, int32_t, size_t) {
        test::Scheduler& scheduler = test::Scheduler::Current();
        thread = scheduler.Start([=] { entry(argument); }) + 1;
        scheduler.Step();
        return true;
    }
    void Join() {
        if (thread != 0)
            test::Scheduler::Current().Join(thread - 1);
    }

private:
    uint32_t thread = 0;  // + 1
};

}  // namespace kivmp4::platform
