// Stepping through the video track's sync samples, with all other tracks in step.
#include "api/Mp4Demux.h"
#include "support/Log.h"

using namespace kivmp4;

namespace {

// Moves every track but the video one to the sample that belongs to `time`.
void MoveOtherTracks(Mp4Demux& demux, TrackCursor& video, int64_t time, bool next) {
    for (TrackCursor* cursor = demux.trackCursors; cursor; cursor = cursor->next) {
        if (cursor == &video)
            continue;
        const int32_t sample = cursor->track->GetSampleIndex(time);
        if (sample >= 0)
            cursor->MoveTo(sample);
        const long long other = cursor->track->GetPresentationTime(cursor->nextSample);
        const long long own = video.track->GetPresentationTime(video.nextSample);
        if (next)
            LogDebug(demux.logLevel, "GetNextSyncUnit", 1005, " audioTS[%lld]  Video[%lld] ", other, own);
        else
            LogDebug(demux.logLevel, "GetPrevSyncUnit", 955, " audioTS[%lld]  Video[%lld] ", other, own);
    }
}

int32_t GetSyncUnit(Mp4Demux& demux, AccessUnit& unit, bool next) {
    const int32_t level = demux.logLevel;
    if (demux.trackCount == 0) {
        if (next)
            LogError(level, "GetNextSyncUnit", 978, " There are not enough Tracks availabe ");
        else
            LogError(level, "GetPrevSyncUnit", 928, " There are not enough Tracks availabe  ");
        return -1;
    }
    TrackCursor* video = demux.VideoCursor();
    if (!video) {
        if (next)
            LogError(level, "GetNextSyncUnit", 984, " Couldn't get Video track ");
        else
            LogError(level, "GetPrevSyncUnit", 934, " Video Track not found ");
        return -1;
    }
    int32_t sample = 0;
    int64_t time = 0;
    // Entries are taken as they stand: one past the track's end fails the fetch below.
    if (!video->track->GetSyncSampleIndex(next, video->nextSample, sample, time)) {
        if (next)
            LogWarning(level, "GetNextSyncUnit", 993, " Unable to get next Sync Sample ");
        else
            LogWarning(level, "GetPrevSyncUnit", 943, " Unable to get previous Sync Sample  ");
        return 1;
    }
    video->MoveTo(sample);
    MoveOtherTracks(demux, *video, time, next);
    const long long shown = time;
    if (next && video->track->GetPrevSyncSample(sample) != sample)
        LogWarning(level, "GetNextSyncUnit", 1011, " Not a Sync sample:  %lld, %d ", shown, sample);
    unit.trackIndex = video->index;
    if (FetchUnit(*video, demux.movie, &unit) != 0) {
        const int track = static_cast<int>(video->index);
        if (next)
            LogError(level, "GetNextSyncUnit", 1023, " Error from GetNext for track %d ", track);
        else
            LogError(level, "GetPrevSyncUnit", 969, " Error from GetNext for track %d ", track);
        return -1;
    }
    demux.activeUnit = &unit;
    unit.isSync = 1;
    video->MoveTo(sample);  // the next ordinary delivery brings the same sample again
    return 0;
}

}  // namespace

extern "C" {

int32_t KivMp4GetNextSyncUnit(Mp4Demux* demux, AccessUnit* unit) {
    return IsLive(demux) && unit ? GetSyncUnit(*demux, *unit, true) : -1;
}

int32_t KivMp4GetPrevSyncUnit(Mp4Demux* demux, AccessUnit* unit) {
    return IsLive(demux) && unit ? GetSyncUnit(*demux, *unit, false) : -1;
}

}  // extern "C"
