// Counts, and the greatest distance between sound and picture.
#include "Report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace player {
namespace {

constexpr double kGap = 0.1;  // seconds: more than that is a gap in the film's sound

}  // namespace

void Report::SoundPlayed(uint32_t serial, double time, int count, int rate, double latency) {
    const std::lock_guard lock(mutex);
    if (serial != soundSerial || std::fabs(time - next) > kGap)
        next = time;
    soundSerial = serial;
    length = static_cast<double>(count) / rate;
    heardFrom = next - latency;
    next += length;
    at = std::chrono::steady_clock::now();
    frames += count;
    seconds += length;
}

void Report::PictureShown(uint32_t serial, double time, bool timed) {
    const std::lock_guard lock(mutex);
    ++shown;
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - at;
    // Once the device plays what nobody counted (silence after the end) there is nothing to compare with.
    if (!timed || serial != soundSerial || passed.count() > 2 * length)
        return;
    const double late = heardFrom + std::min(passed.count(), length) - time;
    if (std::fabs(late) > std::fabs(drift))
        drift = late;
}

void Report::PictureDropped() {
    const std::lock_guard lock(mutex);
    ++dropped;
}

void Report::Stalled() {
    const std::lock_guard lock(mutex);
    ++stalls;
}

void Report::Print() {
    const std::lock_guard lock(mutex);
    std::printf("pictures shown    %lld\n", static_cast<long long>(shown));
    std::printf("pictures dropped  %lld\n", static_cast<long long>(dropped));
    std::printf("sound samples     %lld (%.3f s)\n", static_cast<long long>(frames), seconds);
    std::printf("greatest drift    %+.1f ms\n", drift * 1e3);
    std::printf("stalls            %lld\n", static_cast<long long>(stalls));
}

}  // namespace player
