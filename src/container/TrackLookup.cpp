// Searches over a track's expanded arrays: where to start playing at a time, and the neighbouring sync samples.
#include "container/Track.h"

#include "support/Log.h"
#include "support/Wrap.h"

namespace kivmp4 {

// A sample's presentation time without the edit list's delay. Times are compared as unsigned numbers, so one before 0
// counts as very late.
uint64_t Track::ArrayTime(uint32_t sample) const {
    return static_cast<uint64_t>(WrapAdd(decodeTimes.At(sample), compositionOffsets.At(sample)));
}

// @return false when the time lies at or behind the last sample's
bool Track::FindCandidate(uint64_t time, uint32_t& candidate) const {
    candidate = 0;
    if (sampleCount == 1)
        return true;
    if (sampleCount > 1 && time < static_cast<uint64_t>(decodeTimes.At(1)))
        return true;
    for (uint32_t sample = 1; sample < sampleCount; ++sample) {
        if (ArrayTime(sample - 1) <= time && time < ArrayTime(sample)) {
            candidate = sample - 1;
            return true;
        }
    }
    return false;
}

// @return the nearer of the sync samples around the candidate, the later one when both are as near; the candidate
// itself at or behind the last one
uint32_t Track::SnapToSync(uint32_t candidate) const {
    for (uint32_t entry = 1; entry < syncSampleCount; ++entry) {
        const uint32_t before = syncSamples[entry - 1], behind = syncSamples[entry];
        if (before <= candidate && candidate < behind)
            return candidate - before < behind - candidate ? before : behind;
    }
    return candidate;
}

bool Track::GetJumpSampleIndex(int64_t time, int32_t& index, int64_t& jumpTime) const {
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
        jumpTime = decodeTimes.At(0);
        return true;
    }
    const uint32_t jump = SnapToSync(candidate);
    index = static_cast<int32_t>(jump);
    jumpTime = static_cast<int64_t>(ArrayTime(jump));
    return true;
}

bool Track::GetSyncSampleIndex(bool next, int32_t sample, int32_t& index, int64_t& syncTime) const {
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
    const uint32_t from = static_cast<uint32_t>(sample);
    for (uint32_t entry = 1; entry < syncSampleCount; ++entry) {
        const uint32_t before = syncSamples[entry - 1], behind = syncSamples[entry];
        if (next ? before <= from && from < behind : before < from && from <= behind) {
            index = static_cast<int32_t>(next ? behind : before);
            syncTime = static_cast<int64_t>(ArrayTime(static_cast<uint32_t>(index)));
            return true;
        }
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
