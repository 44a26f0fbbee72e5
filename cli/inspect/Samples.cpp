// The samples of a track one after the other, worked out from its tables without an array of them.
#include "inspect/Samples.h"

#include <algorithm>

namespace kivmp4::inspect {

SampleWalk::SampleWalk(const Track& of) : track(&of) {}

bool SampleWalk::Next(Sample& sample) {
    if (number >= track->sampleCount)
        return false;
    while (!started || inChunk >= perChunk) {
        if (!NextChunk())
            return false;
    }
    sample.number = number;
    sample.size = track->constantSize ? track->constantSize : track->stsz.At(number);
    sample.offset = offset;
    sample.chunk = chunk;
    sample.key = IsKey(number);
    Times(sample);
    offset += sample.size;
    inChunk++;
    number++;
    return true;
}

// Without "stsc" every chunk is one sample.
bool SampleWalk::NextChunk() {
    chunk = started ? chunk + 1 : 0;
    started = true;
    inChunk = 0;
    if (chunk >= track->stco.count)
        return false;
    while (mapEntry + 1 < track->stsc.count && track->stsc.At(mapEntry + 1) <= chunk + 1)
        mapEntry++;
    perChunk = track->stsc.count ? track->stsc.At(mapEntry, 1) : 1;
    offset = track->stco.At64(chunk);
    return true;
}

// Samples beyond the table of times follow each other at once.
void SampleWalk::Times(Sample& sample) {
    while (timeEntry < track->stts.count && timeUsed >= track->stts.At(timeEntry)) {
        timeEntry++;
        timeUsed = 0;
    }
    while (shiftEntry < track->ctts.count && shiftUsed >= track->ctts.At(shiftEntry)) {
        shiftEntry++;
        shiftUsed = 0;
    }
    sample.duration = timeEntry < track->stts.count ? track->stts.At(timeEntry, 1) : 0;
    // Old files with version 0 have negative offsets as well.
    const int32_t shift = shiftEntry < track->ctts.count ? static_cast<int32_t>(track->ctts.At(shiftEntry, 1)) : 0;
    sample.dts = dts;
    sample.cts = dts + shift;
    dts += sample.duration;
    timeUsed++;
    shiftUsed++;
}

bool SampleWalk::IsKey(uint32_t sample) {
    while (keyEntry < track->stss.count && track->stss.At(keyEntry) <= sample)
        keyEntry++;
    return !track->stss.count || (keyEntry < track->stss.count && track->stss.At(keyEntry) == sample + 1);
}

std::vector<Sample> ListSamples(const Track& track) {
    std::vector<Sample> samples;
    SampleWalk walk(track);
    for (Sample sample; walk.Next(sample);)
        samples.push_back(sample);
    return samples;
}

namespace {

int64_t Limited(double ticks) {
    constexpr auto kMost = static_cast<double>(kMostTicks);
    return static_cast<int64_t>(std::clamp(ticks, -kMost, kMost));
}

}  // namespace

int64_t ToTicks(double seconds) { return Limited(seconds * 90000); }

int64_t ToTicks(int64_t units, uint32_t timescale) {
    return timescale ? Limited(static_cast<double>(units) * (90000.0 / timescale)) : 0;
}

}  // namespace kivmp4::inspect
