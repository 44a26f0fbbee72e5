// Searches over the times of a track: where to start playing at one, and the neighbouring sync samples.
#include "container/Track.h"

#include <algorithm>

#include "support/Log.h"
#include "support/Wrap.h"

namespace kivmp4 {
namespace {

constexpr uint32_t kTimeBlock = 64;  // samples of which only the greatest time is kept

}  // namespace

// The sample's decode time without the edit list's delay.
int64_t Track::ArrayDecodeTime(uint32_t sample) {
    return decodeRuns.Find(sample) ? decodeTicks.At(decodeRuns.SumBefore(sample), timescale) : 0;
}

// A sample's presentation time without the edit list's delay. Times are compared as unsigned numbers, so one before 0
// counts as very late.
uint64_t Track::ArrayTime(uint32_t sample) {
    int64_t offset = 0;
    // The product wraps in 32 bits: an offset beyond 23860 media units comes out wrong.
    if (compositionOffsets && compositionRuns.Find(sample))
        offset = DivideOrZero(WrapMultiply32(90000, compositionRuns.Value()), timescale);
    return static_cast<uint64_t>(WrapAdd(ArrayDecodeTime(sample), offset));
}

// Whether the times of all samples ascend; only composition offsets and products that wrap let them go back.
bool Track::TimesAscend() {
    const uint32_t last = sampleCount - 1;
    return !compositionOffsets && decodeRuns.Find(last) && decodeRuns.SumBefore(last) <= TickSteps::kLongestTime;
}

// One pass over all samples, for the first search; without memory every search takes a pass of its own.
void Track::MakeGreatestTimes() {
    const uint32_t blocks = (sampleCount + kTimeBlock - 1) / kTimeBlock;
    if (greatestTimes || blocks < 2)
        return;
    greatestTimes = static_cast<uint64_t*>(ModuleAlloc(alignof(uint64_t), size_t{blocks} * sizeof(uint64_t)));
    uint64_t greatest = 0;
    for (uint32_t sample = 0; greatestTimes && sample < sampleCount; ++sample) {
        greatest = std::max(greatest, ArrayTime(sample));
        greatestTimes[sample / kTimeBlock] = greatest;
    }
}

// Looks for the first sample at or before the time whose successor lies behind it.
// @return false when the time lies at or behind the last sample's
bool Track::FindCandidate(uint64_t time, uint32_t& candidate) {
    candidate = 0;
    if (sampleCount == 1)
        return true;
    if (sampleCount > 1 && time < static_cast<uint64_t>(ArrayDecodeTime(1)))
        return true;
    uint32_t sample = 1;
    if (decodeRuns.FindsAnywhere() && TimesAscend()) {
        for (uint32_t end = sampleCount; sample < end;) {
            const uint32_t middle = sample + (end - sample) / 2;
            if (ArrayTime(middle) <= time)
                sample = middle + 1;
            else
                end = middle;
        }
        candidate = sample - 1;
        return sample < sampleCount;
    }
    MakeGreatestTimes();
    if (greatestTimes && ArrayTime(0) <= time) {
        // Then the first sample behind the time is the successor looked for, and no block before its own holds one.
        const uint64_t* first = greatestTimes;
        const uint64_t* block = std::upper_bound(first, first + (sampleCount + kTimeBlock - 1) / kTimeBlock, time);
        sample = std::max<uint32_t>(static_cast<uint32_t>(block - first) * kTimeBlock, 1);
    }
    for (uint64_t before = ArrayTime(sample - 1); sample < sampleCount; ++sample) {
        const uint64_t own = ArrayTime(sample);
        if (before <= time && time < own) {
            candidate = sample - 1;
            return true;
        }
        before = own;
    }
    return false;
}

// Finds the first two neighbouring sync samples with before <= sample < behind, or before < sample <= behind when
// `behindIncluded`.
bool Track::FindSyncPair(uint32_t sample, bool behindIncluded, uint32_t& before, uint32_t& behind) const {
    uint32_t entry = 1;
    if (syncAscending) {
        const uint32_t* first = syncSamples;
        const uint32_t* end = first + syncSampleCount;
        const uint32_t* found = behindIncluded ? std::lower_bound(first, end, sample) : std::upper_bound(first, end, sample);
        entry = std::max<uint32_t>(static_cast<uint32_t>(found - first), 1);
    }
    for (; entry < syncSampleCount; ++entry) {
        before = syncSamples[entry - 1];
        behind = syncSamples[entry];
        if (behindIncluded ? before < sample && sample <= behind : before <= sample && sample < behind)
            return true;
        if (syncAscending)
            return false;  // in order there is no other place for it
    }
    return false;
}

// @return the nearer of the sync samples around the candidate, the later one when both are as near; the candidate
// itself at or behind the last one. A sync sample that the track does not have is no place to go to
uint32_t Track::SnapToSync(uint32_t candidate) const {
    uint32_t before = 0, behind = 0;
    if (!FindSyncPair(candidate, false, before, behind))
        return candidate;
    return behind >= sampleCount || candidate - before < behind - candidate ? before : behind;
}

bool Track::GetJumpSampleIndex(int64_t time, int32_t& index, int64_t& jumpTime) {
    if (IsVideo() && (!HasDecodeTimes() || !syncSamples)) {
        LogError(logLevel, "GetJumpSampleIndex", 763, " Cannot start ");
        return false;
    }
    if (!HasDecodeTimes()) {
        LogError(logLevel, "GetJumpSampleIndex", 768, " Cannot start ");
        return false;
    }
    uint32_t candidate = 0;
    if (!FindCandidate(static_cast<uint64_t>(time), candidate)) {
        LogError(logLevel, "GetJumpSampleIndex", 796, " Jump index cannot be obtained  ");
        return false;
    }
    if (candidate == 0) {
        index = 0;
        jumpTime = ArrayDecodeTime(0);
        return true;
    }
    const uint32_t jump = SnapToSync(candidate);
    index = static_cast<int32_t>(jump);
    jumpTime = static_cast<int64_t>(ArrayTime(jump));
    return true;
}

bool Track::GetSyncSampleIndex(bool next, int32_t sample, int32_t& index, int64_t& syncTime) {
    if (IsVideo() && (!HasDecodeTimes() || !syncSamples)) {
        LogError(logLevel, "GetSyncSampleIndex", 839, "  Cannot start ");
        return false;
    }
    if (!HasDecodeTimes()) {
        LogError(logLevel, "GetSyncSampleIndex", 844, " Cannot start ");
        return false;
    }
    if (!syncSamples) {
        index = sample;
        return true;
    }
    uint32_t before = 0, behind = 0;
    if (FindSyncPair(static_cast<uint32_t>(sample), !next, before, behind)) {
        index = static_cast<int32_t>(next ? behind : before);
        syncTime = static_cast<int64_t>(ArrayTime(static_cast<uint32_t>(index)));
        return true;
    }
    const uint32_t last = syncSampleCount > 0 ? syncSamples[syncSampleCount - 1] : 0;
    LogDebug(logLevel, "GetSyncSampleIndex", 874, "Cannot find sync sample %d of %lld samples ", sample,
             static_cast<long long>(last));
    if (syncSampleCount == 0)
        return false;
    index = static_cast<int32_t>(next ? last : syncSamples[0]);
    syncTime = static_cast<int64_t>(ArrayTime(static_cast<uint32_t>(index)));
    return !next;
}

}  // namespace kivmp4
