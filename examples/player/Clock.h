// The time that pictures are shown by. Sound drives it while there is sound; else it runs by itself.
#pragma once

#include <chrono>
#include <mutex>

namespace player {

/// Seconds of the film. Any thread.
class Clock {
public:
    /// It is `time` now, and goes on by itself for at most `ahead` seconds: who drives it knows how far it may run
    /// before the next call.
    void Set(double time, double ahead);
    /// It is `time` now, and stays so.
    void Hold(double time);
    /// Stops it where it is.
    void Hold();
    /// Lets it run by itself from where it is.
    void Run();
    double Now();

private:
    double NowLocked() const;

    std::mutex mutex;  // guards all that follows: the film's time was `base` at `at`
    double base = 0;
    double most = 0;  // seconds that it runs from there, 0 while it is held
    std::chrono::steady_clock::time_point at;
};

}  // namespace player
