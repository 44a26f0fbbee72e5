// Extrapolates from the last known time.
#include "Clock.h"

#include <algorithm>
#include <limits>

namespace player {

void Clock::Set(double time, double ahead) {
    const std::lock_guard lock(mutex);
    base = time;
    most = ahead;
    at = std::chrono::steady_clock::now();
}

void Clock::Hold(double time) { Set(time, 0); }

void Clock::Hold() {
    const std::lock_guard lock(mutex);
    base = NowLocked();
    most = 0;
}

void Clock::Run() {
    const std::lock_guard lock(mutex);
    base = NowLocked();
    most = std::numeric_limits<double>::infinity();
    at = std::chrono::steady_clock::now();
}

double Clock::Now() {
    const std::lock_guard lock(mutex);
    return NowLocked();
}

double Clock::NowLocked() const {
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - at;
    return base + std::min(passed.count(), most);
}

}  // namespace player
