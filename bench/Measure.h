// What the two measuring programs of bench/compare share: clocks, memory, random times and the report.
#pragma once

#include <time.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kivmp4::bench {

constexpr int kSeeks = 2000;

inline double Seconds(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

/// Wall time since it was made.
class Stopwatch {
public:
    double Elapsed() const { return Seconds(CLOCK_MONOTONIC) - start; }

private:
    double start = Seconds(CLOCK_MONOTONIC);
};

/// Greatest resident memory of the process so far, in KiB.
inline double PeakMemory() {
    double peak = 0;
    char line[256];
    FILE* status = std::fopen("/proc/self/status", "r");
    while (status && std::fgets(line, sizeof(line), status)) {
        if (std::strncmp(line, "VmHWM:", 6) == 0)
            peak = std::atof(line + 6);
    }
    if (status)
        std::fclose(status);
    return peak;
}

/// The same numbers in each program, from 0 to below 1.
class Fractions {
public:
    double Next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return static_cast<double>(state >> 11) * 0x1p-53;
    }

private:
    uint64_t state = 0x9E3779B97F4A7C15;
};

/// One line for each figure: its name, then its value.
inline void Report(const char* name, double value) { std::printf("%s %.9g\n", name, value); }

}  // namespace kivmp4::bench
