// What a player's `read` sees while the library opens, plays, seeks and winds, on a device of a given speed.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "play/Player.h"

namespace kivmp4::cli {

/// A device that answers each request after a while and then sends at its own rate.
struct Device {
    double latency = 0;    // milliseconds a request
    double bandwidth = 0;  // MB (10^6 bytes) a second; 0: as fast as the file is
};

enum class Cause {
    Ahead,  // the library's thread reads on where it stopped
    Jump,   // the library's thread starts elsewhere
    Raw,    // on the caller's thread: a large piece, or reading ahead is off
};

/// Times in seconds since the beginning.
struct TracedRead {
    size_t phase;
    uint64_t offset;
    uint32_t size;
    Cause cause;
    double start, duration;
};

/// What the player does for a while.
struct Phase {
    std::string name;                // "open", "play", "seek", "wind"
    uint64_t delivered = 0;          // bytes of units that the player got
    uint64_t calls = 0;              // into the library
    uint64_t stalls = 0;             // calls that took longer than a picture may wait
    double duration = 0;             // of the whole phase
    double waited = 0, longest = 0;  // of all calls together, and of the one that took longest
};

struct TraceOptions {
    Device device = {};
    double play = 10;     // seconds of the film; 0: do not play
    uint32_t seeks = 5;   // spread evenly
    uint32_t steps = 10;  // from key frame to key frame, in trick mode
    double decode = 0;    // MB a second that the decoder takes; 0: it takes no time
};

struct TraceResult {
    std::vector<Phase> phases;
    std::vector<TracedRead> reads;
};

/// What the reads of one phase come to.
struct Totals {
    uint64_t reads = 0, bytes = 0;
    std::array<uint64_t, 3> byCause = {};  // reads

    uint64_t Of(Cause cause) const { return byCause[static_cast<size_t>(cause)]; }
    /// What was read and not delivered, in this phase at least: bytes read ahead may be used in the next one.
    uint64_t Waste(const Phase& phase) const { return bytes > phase.delivered ? bytes - phase.delivered : 0; }
};
Totals TotalsOf(const TraceResult& trace, size_t phase);

/// Plays the file and records. Throws a Failure as playing does.
TraceResult Record(const Source& source, const Settings& settings, const TraceOptions& options);

const char* Name(Cause cause);

}  // namespace kivmp4::cli
