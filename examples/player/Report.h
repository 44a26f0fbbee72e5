// What was shown and heard, and how well the two were in step.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>

namespace player {

/// Any thread. Knows the time of the sound by counting samples, not from the clock that pictures are shown by: so it
/// also sees when that clock is wrong.
class Report {
public:
    /// `frames` samples a channel, the first at `time`, go to the device, which plays them `latency` seconds later.
    void SoundPlayed(uint32_t serial, double time, int frames, int rate, double latency);
    /// A picture of `time` has come to the window. `timed` when it was due with the sound.
    void PictureShown(uint32_t serial, double time, bool timed);
    void PictureDropped();
    void Stalled();
    /// One line for each figure to standard output.
    void Print();

private:
    using Time = std::chrono::steady_clock::time_point;

    std::mutex mutex;  // guards all that follows
    int64_t shown = 0, dropped = 0, frames = 0, stalls = 0;
    double seconds = 0;  // of sound
    double drift = 0;    // the greatest, in seconds; above 0 when the picture was late
    // What the device plays now: `heardFrom` began to sound at `at` and lasts `length` seconds.
    uint32_t soundSerial = 0;
    double heardFrom = 0, length = 0;
    double next = 0;  // time of the sample after the last, by the count of samples
    Time at;
};

}  // namespace player
