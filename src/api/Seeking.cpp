// Repositioning all tracks at a presentation time.
//
// The order of the look-ups is part of the behaviour, those for debug lines included: each moves a cache from which
// later ones start. So their values are computed at every log level.
#include "api/Mp4Demux.h"
#include "support/Log.h"
#include "support/Wrap.h"

using namespace kivmp4;

namespace {

// The last enabled track besides video that has samples left, for the last debug line; the first track without one.
TrackCursor* OtherForReport(const Mp4Demux& demux) {
    TrackCursor* found = demux.trackCursors;
    for (TrackCursor* cursor = demux.trackCursors; cursor; cursor = cursor->next)
        if (cursor->enabled && !cursor->track->IsVideo() && cursor->HasSamplesLeft())
            found = cursor;
    return found;
}

TrackCursor* FirstEnabled(const Mp4Demux& demux) {
    for (TrackCursor* cursor = demux.trackCursors; cursor; cursor = cursor->next)
        if (cursor->enabled && cursor->HasSamplesLeft())
            return cursor;
    return demux.trackCursors;
}

long long OffsetDifference(TrackCursor& reference, TrackCursor& other) {
    const int64_t own = reference.track->GetSampleOffset(reference.nextSample);
    return WrapSubtract(own, other.track->GetSampleOffset(other.nextSample));
}

void MoveReference(const Mp4Demux& demux, TrackCursor& reference, int32_t sample, bool forward) {
    const int32_t level = demux.logLevel;
    Track& track = *reference.track;
    reference.MoveTo(sample);
    const long long time = track.GetPresentationTime(sample);
    const long long offset = track.GetSampleOffset(sample);
    if (forward)
        LogDebug(level, "JumpPTS", 872, "VIDEO: TrackTS[%lld] offset[%lld] Index[%d] ", time, offset, sample);
    else
        LogDebug(level, "JumpPTS", 895, "VIDEO: TrackTS[%lld] offset[%lld] Index[%d] ", time, offset, sample);
    const char isKey = track.GetPrevSyncSample(sample) == sample ? 'Y' : 'N';
    if (forward)
        LogDebug(level, "JumpPTS", 874, " Is this an I-Frame:   %c", isKey);
    else
        LogDebug(level, "JumpPTS", 898, "JumpPTS():  Is this an I-Frame:   %c", isKey);
}

void MoveOther(const Mp4Demux& demux, TrackCursor& reference, int64_t referenceTime, TrackCursor& other, bool forward) {
    const int32_t level = demux.logLevel;
    Track& track = *other.track;
    const int32_t oldSample = other.nextSample;
    if (track.GetPresentationTime(oldSample) != referenceTime) {
        const int32_t found = track.GetSampleIndex(referenceTime);
        if (found >= 0)
            other.MoveTo(found);
    }
    const int32_t sample = other.nextSample;
    const int64_t time = track.GetPresentationTime(sample);
    const long long offset = track.GetSampleOffset(sample);
    const long long apart = WrapSubtract(time, referenceTime);
    if (forward)
        LogDebug(level, "JumpPTS", 888, "AUDIO/Text: OldIndex[%d]\tNewIndex[%d] TS[%lld] offset[%lld] TimeDiff[%lld]",
                 oldSample, sample, static_cast<long long>(time), offset, apart);
    else
        LogDebug(level, "JumpPTS", 912, "AUDIO/Text: OldIndex[%d]\tNewIndex[%d] TS[%lld] offset[%lld] timeDiff[%lld] ",
                 oldSample, sample, static_cast<long long>(time), offset, apart);
    const long long distance = OffsetDifference(reference, other);
    if (forward)
        LogDebug(level, "JumpPTS", 890, "**** JumpPTS() -- Difference in Video - Audio offset:  %lld  ****", distance);
    else
        LogDebug(level, "JumpPTS", 915, "**** JumpPTS() -- Difference in Video - Audio offset:  %lld  ****", distance);
}

int32_t ResetToStart(const Mp4Demux& demux) {
    for (TrackCursor* cursor = demux.trackCursors; cursor; cursor = cursor->next)
        cursor->MoveTo(0);
    LogDebug(demux.logLevel, "JumpPTS", 864, " Reset Demux to start of Video ");
    return 0;
}

int32_t JumpPTS(const Mp4Demux& demux, int64_t target) {
    const int32_t level = demux.logLevel;
    if (demux.trackCount == 0) {
        LogError(level, "JumpPTS", 806, "FileMovie::JumpPTS: There are not enough Tracks availabe ");
        return -1;
    }
    TrackCursor* reference = demux.VideoCursor();
    TrackCursor* reported = OtherForReport(demux);
    if (!reference) {
        LogError(level, "JumpPTS", 815,  // one literal, so that it can be searched for
                 "FileMovie::JumpPTS:  Video track is disables or no video track. Using the sample index of first "
                 "enabled track");
        reference = FirstEnabled(demux);
    } else if (!reference->HasSamplesLeft()) {
        LogError(level, "JumpPTS", 825, "Video Track has reached EOS");
        return -2;
    }
    const int64_t currentTime = reference->track->GetPresentationTime(reference->nextSample);
    const bool forward = currentTime <= target;
    int32_t sample = 0;
    int64_t sampleTime = 0;
    if (!reference->track->GetJumpSampleIndex(target, sample, sampleTime)) {
        LogError(level, "JumpPTS", 843, "FileMovie::JumpPTS:   GetJumpSampleIndex returned %d ", 0);
        return -2;
    }
    LogDebug(level, "JumpPTS", 847, " after Jump params:  SampleIdx[%d] TS[%lld] CurrentTS[%lld] ", sample,
             static_cast<long long>(sampleTime), static_cast<long long>(currentTime));
    LogDebug(level, "JumpPTS", 848, " CurrentIndex[%d]  NewIndex[%d]  ", reference->nextSample, sample);
    if (sample == 0)
        return ResetToStart(demux);

    MoveReference(demux, *reference, sample, forward);
    const int64_t referenceTime = reference->track->GetPresentationTime(sample);
    for (TrackCursor* cursor = demux.trackCursors; cursor; cursor = cursor->next)
        if (cursor != reference)
            MoveOther(demux, *reference, referenceTime, *cursor, forward);
    const long long distance = OffsetDifference(*reference, *reported);
    LogDebug(level, "JumpPTS", 919, "**** JumpPTS() -- Difference in Video - Audio offset:  %lld  ****", distance);
    return 0;
}

}  // namespace

extern "C" {

int32_t KivMp4JumpPTS(Mp4Demux* demux, int64_t presentationTime) {
    if (!IsLive(demux))
        return -1;
    ModuleLock.Lock();
    const int32_t result = JumpPTS(*demux, presentationTime);
    ModuleLock.Unlock();
    return result;
}

}  // extern "C"
