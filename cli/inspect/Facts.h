// What the sample tables tell of a track as a whole, and of tracks together.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "inspect/Movie.h"
#include "inspect/Samples.h"

namespace kivmp4::inspect {

/// Times in 90 kHz ticks, without what the edit list adds.
struct Facts {
    uint32_t units = 0, keys = 0;
    uint64_t bytes = 0;
    int64_t start = 0;            // the first presentation time
    int64_t duration = 0;         // of all samples together
    int64_t longestInterval = 0;  // from a key frame to the next one, or to the end
    uint32_t readable = 0;        // units that lie inside the file
    uint64_t readableBytes = 0;   // of these
    int64_t readableUntil = 0;    // decode time at which the last of them ends
};
Facts FactsOf(const File& file, const Track& track);

/// A key frame and the samples up to the next one.
struct KeyFrame {
    Sample sample;
    uint32_t units = 0;
    uint64_t bytes = 0;
};
std::vector<KeyFrame> KeyFramesOf(const Track& track);

/// 90 kHz ticks by which the module moves the track: an empty edit, and then the media from its start.
int64_t AppliedDelay(const Movie& movie, const Track& track);

/// A sample and its track.
struct DueSample {
    const Track* track;
    Sample sample;
};
/// Goes through the played tracks as time passes. `visit` gets the sample that is due in each of them, at the decode
/// time (seconds) of the earliest one; with less than two tracks left it is not called.
void WalkByTime(const Movie& movie, const std::function<void(double time, const std::vector<DueSample>& due)>& visit);

/// Bytes that the module reads ahead: what is due at the same time should lie within so many.
constexpr uint64_t kReadAhead = 192 << 10;

/// The greatest distance in the file between samples that are due at the same time.
struct Distance {
    uint64_t bytes = 0;
    uint64_t offset = 0;  // of the one that lies first
    double time = 0;      // seconds
};
/// Of the tracks that are played. With less than two of them the distance is 0.
Distance WidestDistance(const Movie& movie);

}  // namespace kivmp4::inspect
