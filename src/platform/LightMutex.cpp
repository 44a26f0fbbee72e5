// What a lightweight mutex does when two threads meet.
#include "platform/LightMutex.h"

namespace kivmp4::platform {

int32_t LightMutex::Create(const char* label) {
    name = label;
    return 0;
}

void LightMutex::LockContended() {
    while (!Take())
        state.WaitWhile(kHeld, kNever);
}

}  // namespace kivmp4::platform
