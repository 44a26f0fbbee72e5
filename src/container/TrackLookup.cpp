// Searches over the times of a track: where to start playing at one, and the neighbouring sync samples.
#include "container/Track.h"

#include <algorithm>

#include "support/Log.h"

namespace kivmp4 {

// Finds the first two neighbouring sync samples with before <= sample < after, or before < sample <= after when
// `afterIncluded`.
bool Track::FindSyncPair(uint32_t sample, bool afterIncluded, uint32_t& before, uint32_t& after) const {
    uint32_t entry = 1;
    if (syncAscending) {
        const uint32_t* first = syncSamples;
        const uint32_t* end = first + syncSampleCount;
        const uint32_t* found =
            afterIncluded ? std::lower_bound(first, end, sample) : std::upper_bound(first, end, sample);
        entry = std::max<uint32_t>(static_cast<uint32_t>(found - first), 1);
    }
    for (; entry < syncSampleCount; ++entry) {
        before = syncSamples[entry - 1];
        after = syncSamples[entry];
        if (afterIncluded ? before < sample && sample <= after : before <= sample && sample < after)
            return true;
        if (syncAscending)
            return false;  // in order there is no other place for it
    }
    return false;
}

// @return the nearer of the sync samples around the candidate, the later one when both are as near; the candidate
// itself at or after the last one. Entries are taken as they stand, also those past the track's end
uint32_t Track::SnapToSync(uint32_t candidate) const {
    uint32_t before = 0, after = 0;
    if (!FindSyncPair(candidate, false, before, after))
        return candidate;
    return candidate - before < after - candidate ? before : after;
}

bool Track::GetJumpSampleIndex(int64_t time, int32_t& index, int64_t& jumpTime) {
    if (IsVideo() && (!times.Exist() || !syncSamples)) {
        LogError(logLevel, "GetJumpSampleIndex", 763, " Cannot start ");
        return false;
    }
    if (!times.Exist()) {
        LogError(logLevel, "GetJumpSampleIndex", 768, " Cannot start ");
        return false;
    }
    uint32_t candidate = 0;
    if (!times.FindCandidate(static_cast<uint64_t>(time), candidate)) {
        LogError(logLevel, "GetJumpSampleIndex", 796, " Jump index cannot be obtained  ");
        return false;
    }
    if (candidate == 0) {
        index = 0;
        jumpTime = times.DecodeTime(0);
        return true;
    }
    const uint32_t jump = SnapToSync(candidate);
    index = static_cast<int32_t>(jump);
    jumpTime = static_cast<int64_t>(times.Time(jump));
    return true;
}

bool Track::GetSyncSampleIndex(bool next, int32_t sample, int32_t& index, int64_t& syncTime) {
    if (IsVideo() && (!times.Exist() || !syncSamples)) {
        LogError(logLevel, "GetSyncSampleIndex", 839, "  Cannot start ");
        return false;
    }
    if (!times.Exist()) {
        LogError(logLevel, "GetSyncSampleIndex", 844, " Cannot start ");
        return false;
    }
    if (!syncSamples) {
        index = sample;
        return true;
    }
    uint32_t before = 0, after = 0;
    if (FindSyncPair(static_cast<uint32_t>(sample), !next, before, after)) {
        index = static_cast<int32_t>(next ? after : before);
        syncTime = static_cast<int64_t>(times.Time(static_cast<uint32_t>(index)));
        return true;
    }
    const uint32_t last = syncSampleCount > 0 ? syncSamples[syncSampleCount - 1] : 0;
    LogDebug(logLevel, "GetSyncSampleIndex", 874, "Cannot find sync sample %d of %lld samples ", sample,
             static_cast<long long>(last));
    if (syncSampleCount == 0)
        return false;
    index = static_cast<int32_t>(next ? last : syncSamples[0]);
    syncTime = static_cast<int64_t>(times.Time(static_cast<uint32_t>(index)));
    return !next;
}

}  // namespace kivmp4
