// A storage device with a fixed latency and bandwidth, one request at a time, and what a player does on it.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "Measure.h"

namespace kivmp4::bench {

/// A memory card or a network share: 1 ms a request and 20 MB/s, unless LATENCY (seconds) or BANDWIDTH (bytes a second)
/// say otherwise. Counts what was asked of it.
class SlowDevice {
public:
    bool Open(const char* path) {
        struct stat status;
        descriptor = open(path, O_RDONLY);
        if (descriptor < 0 || fstat(descriptor, &status) != 0)
            return false;
        size = status.st_size;
        return true;
    }

    int64_t Size() const { return size; }
    double Bytes() const { return bytes; }

    /// @return the number of bytes read, after as long as the device takes for them; fewer at the file's end, -1 on failure
    ssize_t Read(void* destination, int64_t offset, uint32_t count) {
        const double start = Seconds(CLOCK_MONOTONIC);
        const ssize_t got = pread(descriptor, destination, count, offset);
        SleepUntil(start + latency + TimeFor(static_cast<double>(std::max<ssize_t>(got, 0))));
        bytes += static_cast<double>(std::max<ssize_t>(got, 0));
        return got;
    }

    double TimeFor(double count) const { return count / bandwidth; }

    static void SleepUntil(double time) {
        const timespec at = {static_cast<time_t>(time),
                             static_cast<long>((time - static_cast<double>(static_cast<time_t>(time))) * 1e9)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr);
    }

private:
    static double Setting(const char* name, double otherwise) {
        const char* text = std::getenv(name);
        return text ? std::atof(text) : otherwise;
    }

    const double latency = Setting("LATENCY", 0.001), bandwidth = Setting("BANDWIDTH", 20e6);
    int descriptor = -1;
    int64_t size = 0;
    double bytes = 0;
};

/// Plays for three seconds with a decoder that takes no time, for three with one that is busy as long as the device
/// needs for the same bytes, then seeks at random. Demuxer: Open(), Take() -> size of the next unit, below 0 at the end;
/// Seek(fraction) goes there and takes the unit found.
template <typename Demuxer>
int MeasureOnSlowDevice(SlowDevice& device, Demuxer& demuxer) {
    constexpr double kPlay = 3;
    constexpr int kSlowSeeks = 40;
    const Stopwatch opening;
    if (!demuxer.Open())
        return 1;
    Report("open_ms", opening.Elapsed() * 1e3);
    for (const bool busy : {false, true}) {
        double taken = 0, stall = 0;
        const Stopwatch playing;
        while (playing.Elapsed() < kPlay) {
            const Stopwatch taking;
            const int64_t unit = demuxer.Take();
            if (unit < 0)
                break;
            stall = std::max(stall, taking.Elapsed());
            taken += static_cast<double>(unit);
            if (busy)
                device.SleepUntil(Seconds(CLOCK_MONOTONIC) + device.TimeFor(static_cast<double>(unit)));
        }
        Report(busy ? "busy_mbps" : "play_mbps", taken / playing.Elapsed() / 1e6);
        Report(busy ? "busy_stall_ms" : "play_stall_ms", stall * 1e3);
    }
    Fractions fractions;
    const double before = device.Bytes();
    const Stopwatch seeking;
    for (int seek = 0; seek < kSlowSeeks; ++seek)
        demuxer.Seek(fractions.Next());
    Report("seek_ms", seeking.Elapsed() / kSlowSeeks * 1e3);
    Report("seek_kib", (device.Bytes() - before) / 1024 / kSlowSeeks);
    return 0;
}

}  // namespace kivmp4::bench
