// Sample sizes and offsets.
#include "container/SampleMap.h"

#include <algorithm>

namespace kivmp4 {
namespace {

constexpr size_t kSizeEntries = 12;  // content offset of the first "stsz" entry
constexpr int32_t kUnbounded = 0x7FFFFFFF;
constexpr int64_t kSumStep = 256;
constexpr int64_t kLongRun = 1024;  // below, adding up is as fast

}  // namespace

bool SampleMap::Parse(Mp4Box& stbl) {
    if (!ParseSizes(stbl))
        return false;
    if (!chunkMap.Acquire(stbl.FindChild(FourCc("stsc"))) || chunkMap->size < kTableHeader)
        return false;
    chunkMapCount = TableEntries(*chunkMap, 12);
    Mp4Box* offsets = stbl.FindChild(FourCc("stco"));
    if (!offsets) {
        offsets = stbl.FindChild(FourCc("co64"));
        offsets64 = offsets != nullptr;
    }
    if (!chunkOffsets.Acquire(offsets) || chunkOffsets->size < kTableHeader)
        return false;
    chunkCount = TableEntries(*chunkOffsets, offsets64 ? 8 : 4);
    return true;
}

bool SampleMap::ParseSizes(Mp4Box& stbl) {
    if (!sizes.Acquire(stbl.FindChild(FourCc("stsz"))) || sizes->size < kSizeEntries || sizes->U8(0) != 0)
        return false;
    constantSize = sizes->BE32(4);
    sampleCount = sizes->BE32(8);
    if (constantSize != 0)
        return true;
    const size_t present = (sizes->size - kSizeEntries) / 4;
    if (sampleCount > present)
        sampleCount = static_cast<uint32_t>(present);
    return true;
}

uint32_t SampleMap::GetSampleSize(int32_t sample) const {
    const uint32_t index = static_cast<uint32_t>(sample);
    if (index >= sampleCount)
        return 0;
    return constantSize ? constantSize : ReadBE32(sizes->data + kSizeEntries + size_t{4} * index);
}

// Samples that an entry covers when nothing wraps; more than any table may hold for a forged one.
int64_t SampleMap::SamplesOf(int32_t entry) const {
    if (entry == static_cast<int32_t>(chunkMapCount) - 1)
        return 0;
    const int64_t chunks = int64_t{FirstChunk(entry + 1)} - FirstChunk(entry);
    return chunks < 0 || chunks > INT32_MAX ? int64_t{INT32_MAX} + 1 : chunks * SamplesPerChunk(entry);
}

// Moves the cache to the entry that covers the sample; the last one covers all that is left. Sample numbers are formed
// in 32 bits and may wrap with forged entries; the walk is bounded by the entries all the same.
void SampleMap::FindChunkEntry(int32_t sample) {
    const auto samplesOf = [this](uint32_t entry) { return SamplesOf(static_cast<int32_t>(entry)); };
    if (sample < cacheFirstSample || sample > cacheEndSample)
        cacheEntry = static_cast<int32_t>(chunkMarks.StartFor(sample, chunkMapCount, cacheFirstSample, samplesOf));
    const int32_t last = static_cast<int32_t>(chunkMapCount) - 1;
    int32_t entry = cacheEntry;
    uint32_t first = static_cast<uint32_t>(cacheFirstSample);
    for (uint32_t steps = 0; entry < last; ++steps) {
        if (steps == SparseMarks::kStep && chunkMarks.Exist(chunkMapCount, samplesOf)) {
            entry = static_cast<int32_t>(chunkMarks.StartFor(sample, chunkMapCount, cacheFirstSample, samplesOf));
            first = static_cast<uint32_t>(cacheFirstSample);
            if (entry == last)
                break;
        }
        const uint32_t chunks = FirstChunk(entry + 1) - FirstChunk(entry);
        const uint32_t end = first + chunks * SamplesPerChunk(entry);
        cacheEndSample = static_cast<int32_t>(end);
        if (sample < cacheEndSample)
            break;
        first = end;
        ++entry;
    }
    if (entry == last)
        cacheEndSample = kUnbounded;
    cacheEntry = entry;
    cacheFirstSample = static_cast<int32_t>(first);
}

// Bytes of the samples from `first` to before `end`, as far as they exist.
uint64_t SampleMap::SizeOfRun(int64_t first, int64_t end) {
    if (constantSize)
        return static_cast<uint64_t>(end - first) * constantSize;
    first = std::max<int64_t>(first, 0);
    end = std::min<int64_t>(end, sampleCount);
    if (end - first <= kLongRun || !MakeSizeSums())
        return PlainSum(first, end);
    const int64_t from = (first + kSumStep - 1) / kSumStep, to = end / kSumStep;
    return PlainSum(first, from * kSumStep) + sizeSums[to] - sizeSums[from] + PlainSum(to * kSumStep, end);
}

uint64_t SampleMap::PlainSum(int64_t first, int64_t end) const {
    uint64_t sum = 0;
    for (; first < end; ++first)
        sum += ReadBE32(sizes->data + kSizeEntries + 4 * static_cast<size_t>(first));
    return sum;
}

// Sums of all sizes before each 256th sample, for seeking in long chunks. @return false when there is no memory for them
bool SampleMap::MakeSizeSums() {
    if (sizeSumsTried)
        return sizeSums != nullptr;
    sizeSumsTried = true;
    const int64_t count = int64_t{sampleCount} / kSumStep + 1;
    sizeSums = static_cast<uint64_t*>(ModuleAlloc(alignof(uint64_t), static_cast<size_t>(count) * sizeof(uint64_t)));
    for (int64_t i = 1; sizeSums && i < count; ++i)
        sizeSums[i] = sizeSums[i - 1] + PlainSum((i - 1) * kSumStep, i * kSumStep);
    return sizeSums != nullptr;
}

uint64_t SampleMap::ChunkOffset(uint32_t chunk) const {
    const uint8_t* entries = chunkOffsets->data + kTableHeader;
    return offsets64 ? ReadBE64(entries + size_t{8} * chunk) : ReadBE32(entries + size_t{4} * chunk);
}

uint64_t SampleMap::GetSampleOffset(int32_t sample) {
    if (sample < 0)
        return 0;
    // In the chunk of the last answer: what it is without a walk, since the cache would not move.
    const bool sameEntry = sample >= cacheFirstSample && sample < cacheEndSample;
    if (sameEntry && knownSample >= 0 && sample < knownChunkEnd && (sample == knownSample || sample - 1 == knownSample)) {
        knownOffset += SizeOfRun(knownSample, sample);
        knownSample = sample;
        return knownOffset;
    }
    knownSample = -1;
    uint32_t samplesPerChunk = 1;
    int64_t firstChunk = 0, firstSample = 0;
    if (chunkMapCount > 0) {
        FindChunkEntry(sample);
        samplesPerChunk = SamplesPerChunk(cacheEntry);
        firstChunk = static_cast<int32_t>(FirstChunk(cacheEntry) - 1);
        firstSample = cacheFirstSample;
    }
    const int64_t within = sample - firstSample;
    const int64_t whole = samplesPerChunk ? within / samplesPerChunk : 0;
    const int64_t position = within - whole * samplesPerChunk;  // inside the chunk
    const int64_t chunk = firstChunk + whole;
    if (chunk < 0 || chunk >= chunkCount)
        return 0;
    knownSample = sample;
    knownOffset = ChunkOffset(static_cast<uint32_t>(chunk)) + SizeOfRun(sample - position, sample);
    knownChunkEnd = sample - position + samplesPerChunk;
    return knownOffset;
}

}  // namespace kivmp4
