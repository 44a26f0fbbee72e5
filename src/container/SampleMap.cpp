// Sample sizes and offsets.
#include "container/SampleMap.h"

#include <algorithm>

namespace kivmp4 {
namespace {

constexpr int32_t kUnbounded = 0x7FFFFFFF;
constexpr uint32_t kStep = SkipIndex<uint64_t>::kStep;
// Adding up so many sizes takes a few microseconds; the index takes a walk over the whole table, of which a player that
// jumps once need not touch more than a chunk.
constexpr int64_t kLongRun = 8192;

}  // namespace

bool SampleMap::Parse(Mp4Box& stbl) {
    if (!ParseSizes(stbl))
        return false;
    if (!chunkMap.Acquire(stbl.FindChild(FourCc("stsc")), 12))
        return false;
    if (Mp4Box* offsets = stbl.FindChild(FourCc("stco")))
        return chunkOffsets.Acquire(offsets, 4);
    offsets64 = chunkOffsets.Acquire(stbl.FindChild(FourCc("co64")), 8);
    return offsets64;
}

bool SampleMap::ParseSizes(Mp4Box& stbl) {
    constexpr size_t kConstantSize = 4, kCount = 8;  // content offsets
    if (!sizes.Acquire(stbl.FindChild(FourCc("stsz")), 4, kCount) || sizes.Version() != 0)
        return false;
    constantSize = sizes.Field(kConstantSize);
    sampleCount = constantSize ? sizes.Stated() : sizes.Count();
    return true;
}

uint32_t SampleMap::GetSampleSize(int32_t sample) const {
    const uint32_t index = static_cast<uint32_t>(sample);
    if (index >= sampleCount)
        return 0;
    return constantSize ? constantSize : sizes.Word(index);
}

// Three steps: the "stsc" entry that covers the sample, its chunk and place there, and the bytes before it in the chunk.
uint64_t SampleMap::GetSampleOffset(int32_t sample) {
    if (sample < 0)
        return 0;
    if (FollowsKnown(sample)) {
        knownOffset += SizeOfRun(knownSample, sample);
        knownSample = sample;
        return knownOffset;
    }
    knownSample = -1;
    const Place place = FindPlace(sample);
    if (place.chunk < 0 || place.chunk >= chunkOffsets.Count())
        return 0;
    const uint32_t chunk = static_cast<uint32_t>(place.chunk);
    const int64_t chunkStart = sample - place.position;
    const uint64_t offset = offsets64 ? chunkOffsets.LongWord(chunk) : chunkOffsets.Word(chunk);
    knownSample = sample;
    knownOffset = offset + SizeOfRun(chunkStart, sample);
    knownChunkEnd = chunkStart + place.samplesPerChunk;
    return knownOffset;
}

// Whether the sample is the known one or the next of its chunk, so that no walk is needed: the cache would not move.
bool SampleMap::FollowsKnown(int32_t sample) const {
    const bool sameEntry = sample >= cacheFirstSample && sample < cacheEndSample;
    const bool near = sample == knownSample || sample - 1 == knownSample;
    return sameEntry && near && knownSample >= 0 && sample < knownChunkEnd;
}

// Without "stsc" entries each sample is a chunk of its own.
SampleMap::Place SampleMap::FindPlace(int32_t sample) {
    uint32_t samplesPerChunk = 1;
    int64_t firstChunk = 0, firstSample = 0;
    if (chunkMap.Count() > 0) {
        FindChunkEntry(sample);
        samplesPerChunk = SamplesPerChunk(cacheEntry);
        firstChunk = static_cast<int32_t>(FirstChunk(cacheEntry) - 1);
        firstSample = cacheFirstSample;
    }
    const int64_t within = sample - firstSample;
    const int64_t whole = samplesPerChunk ? within / samplesPerChunk : 0;
    return {firstChunk + whole, within - whole * samplesPerChunk, samplesPerChunk};
}

// Sample numbers are formed in 32 bits and wrap with forged entries.
uint32_t SampleMap::EndOfEntry(int32_t entry, uint32_t first) const {
    return first + (FirstChunk(entry + 1) - FirstChunk(entry)) * SamplesPerChunk(entry);
}

// Moves the cache to an entry that begins at or before the sample, and near it. Everything before that entry ends at or
// before the sample, so a walk on stops where one from entry 0 would. There is no index when sample numbers would wrap,
// since where a walk stops then depends on where it starts.
// @return whether there is an index
bool SampleMap::SkipToNear(int32_t sample) {
    const uint32_t last = chunkMap.Count() - 1;
    const auto pass = [&](uint64_t& first, uint32_t item, uint32_t end) {
        for (; item < std::min(end, last) && first <= INT32_MAX; ++item) {
            const int32_t entry = static_cast<int32_t>(item);
            const int64_t chunks = int64_t{FirstChunk(entry + 1)} - FirstChunk(entry);
            if (chunks < 0)
                return false;
            first += static_cast<uint64_t>(chunks) * SamplesPerChunk(entry);
        }
        return first <= INT32_MAX;
    };
    if (!entryFirstSamples.Make(chunkMap.Count(), pass))
        return false;
    const uint32_t wanted = static_cast<uint32_t>(sample);
    const uint32_t block = entryFirstSamples.LastBlock([=](uint64_t first) { return first <= wanted; });
    cacheEntry = static_cast<int32_t>(block * kStep);
    cacheFirstSample = static_cast<int32_t>(entryFirstSamples[block]);
    return true;
}

// Moves the cache to the entry that covers the sample; the last one covers all that is left.
void SampleMap::FindChunkEntry(int32_t sample) {
    if ((sample < cacheFirstSample || sample > cacheEndSample) && !SkipToNear(sample)) {
        cacheEntry = 0;
        cacheFirstSample = 0;
    }
    const int32_t last = static_cast<int32_t>(chunkMap.Count()) - 1;
    for (uint32_t steps = 0; cacheEntry < last; ++steps) {
        if (steps == kStep && SkipToNear(sample) && cacheEntry == last)
            break;
        cacheEndSample = static_cast<int32_t>(EndOfEntry(cacheEntry, static_cast<uint32_t>(cacheFirstSample)));
        if (sample < cacheEndSample)
            return;
        cacheFirstSample = cacheEndSample;
        ++cacheEntry;
    }
    cacheEndSample = kUnbounded;
}

// Bytes of the samples from `first` to before `end`, as far as they exist.
uint64_t SampleMap::SizeOfRun(int64_t first, int64_t end) {
    if (constantSize)
        return static_cast<uint64_t>(end - first) * constantSize;
    first = std::max<int64_t>(first, 0);
    end = std::min<int64_t>(end, sampleCount);
    const auto pass = [this](uint64_t& sum, uint32_t from, uint32_t to) {
        sum += PlainSum(from, to);
        return true;
    };
    if (end - first <= kLongRun || !sizeSums.Make(sampleCount, pass))
        return PlainSum(first, end);
    const int64_t from = (first + kStep - 1) / kStep, to = (end - 1) / kStep;
    return PlainSum(first, from * kStep) + sizeSums[static_cast<uint32_t>(to)] - sizeSums[static_cast<uint32_t>(from)] +
           PlainSum(to * kStep, end);
}

uint64_t SampleMap::PlainSum(int64_t first, int64_t end) const {
    return first < end ? sizes.Sum(static_cast<uint32_t>(first), static_cast<uint32_t>(end)) : 0;
}

}  // namespace kivmp4
