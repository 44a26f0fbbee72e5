// The samples of a track one after the other, worked out from its tables without an array of them.
#pragma once

#include <cstdint>
#include <vector>

#include "inspect/Track.h"

namespace kivmp4::inspect {

/// One sample. Times are in media units, without what the edit list adds.
struct Sample {
    uint32_t number = 0;  // from 0
    uint64_t offset = 0;  // in the file
    uint32_t size = 0;
    int64_t dts = 0;
    int64_t cts = 0;  // dts and the composition offset
    uint32_t duration = 0;
    uint32_t chunk = 0;  // from 0
    bool key = true;     // every sample is one in a track without "stss"

    uint64_t End() const { return offset + size; }
};

/// Walks over the samples that have a size and a chunk; each step takes the same short time. The track must outlive it.
class SampleWalk {
public:
    explicit SampleWalk(const Track& track);
    /// @return false when no sample is left
    bool Next(Sample& sample);

private:
    bool NextChunk();
    void Times(Sample& sample);
    bool IsKey(uint32_t number);

    const Track* track;  // never null
    uint32_t number = 0;
    uint32_t chunk = 0, inChunk = 0, perChunk = 0;  // `inChunk` of `perChunk` samples are done
    bool started = false;
    uint32_t mapEntry = 0;  // of stsc
    uint64_t offset = 0;
    uint32_t timeEntry = 0, timeUsed = 0;    // of stts, and samples of it that are done
    uint32_t shiftEntry = 0, shiftUsed = 0;  // of ctts
    uint32_t keyEntry = 0;                   // of stss
    int64_t dts = 0;
};

std::vector<Sample> ListSamples(const Track& track);

/// 400,000 years in 90 kHz ticks. Longer times, which forged tables have, count as this, so that sums of them fit.
constexpr int64_t kMostTicks = int64_t{1} << 60;

int64_t ToTicks(double seconds);
/// Media units in 90 kHz ticks, cut off; 0 when the timescale is.
int64_t ToTicks(int64_t units, uint32_t timescale);

}  // namespace kivmp4::inspect
