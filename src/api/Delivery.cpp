// Enabling tracks and delivering their units in file order.
#include <cstddef>
#include <cstring>

#include "api/Mp4Demux.h"
#include "support/Log.h"
#include "support/Wrap.h"

namespace kivmp4 {

static_assert(sizeof(AccessUnit) == 56);
static_assert(offsetof(AccessUnit, payload) == 0 && offsetof(AccessUnit, capacity) == sizeof(void*));
static_assert(offsetof(AccessUnit, size) == sizeof(void*) + 4);
static_assert(offsetof(AccessUnit, pts) == 16 && offsetof(AccessUnit, dts) == 24);
static_assert(offsetof(AccessUnit, duration) == 32 && offsetof(AccessUnit, isSync) == 40);
static_assert(offsetof(AccessUnit, trackIndex) == 44 && offsetof(AccessUnit, isVideo) == 48);

int32_t FetchUnit(TrackCursor& cursor, FileMovie* movie, AccessUnit* unit) {
    Track& track = *cursor.track;
    UnitHandler* handler = track.GetUnitHandler();
    if (!unit || !movie || !handler)
        return -1;
    unit->size = 0;
    const int32_t sample = cursor.nextSample;
    if (sample == 0)
        handler->Reset();
    const int64_t offset = cursor.NextOffset();
    const uint32_t size = track.GetSampleSize(sample);
    if (handler->FormatUnit(*unit, *movie, offset, size) == 0)  // an empty sample is a failure too: meant
        return -1;
    unit->duration = track.GetSampleDuration(sample);
    unit->isSync = track.GetPrevSyncSample(sample) == sample ? 1 : 0;
    unit->dts = track.GetDecodeTime(sample);
    unit->pts = WrapAdd(unit->dts, track.GetCompositionOffset(sample));
    unit->isVideo = track.IsVideo() ? 1 : 0;
    // A forged key-frame table can lead to the last number that there is; the track is at its end there too.
    cursor.MoveTo(sample < INT32_MAX ? sample + 1 : sample);
    return 0;
}

namespace {

// @return the enabled cursor whose next sample lies first in the file, the earlier track of two; null when all are at
// their end
TrackCursor* ChooseCursor(const Mp4Demux& demux) {
    TrackCursor* best = nullptr;
    int64_t bestOffset = 0;
    for (TrackCursor* cursor = demux.trackCursors; cursor; cursor = cursor->next) {
        if (!cursor->enabled || !cursor->HasSamplesLeft())
            continue;
        const int64_t offset = cursor->NextOffset();
        if (!best || offset < bestOffset) {
            best = cursor;
            bestOffset = offset;
        }
    }
    return best;
}

int32_t GetNextUnit(Mp4Demux& demux, AccessUnit* unit) {
    if (demux.trackCount == 0) {
        LogError(demux.logLevel, "GetNextUnit", 1099, " No tracks found ");
        return -1;
    }
    TrackCursor* best = ChooseCursor(demux);
    if (!best)
        return 1;
    if (unit)
        unit->trackIndex = best->index;
    if (FetchUnit(*best, demux.movie, unit) != 0) {
        const int track = static_cast<int>(best->index);
        LogError(demux.logLevel, "GetNextUnit", 1121, " Error from GetNext for track %d ", track);
        return -1;
    }
    demux.activeUnit = unit;
    return 0;
}

}  // namespace
}  // namespace kivmp4

using namespace kivmp4;

extern "C" {

int32_t KivMp4EnableTrack(Mp4Demux* demux, int32_t trackIndex, uint8_t enable) {
    // A negative index passes and means the first track.
    if (!IsLive(demux) || trackIndex >= static_cast<int32_t>(demux->trackCount))
        return -1;
    TrackCursor* cursor = demux->CursorAt(static_cast<uint32_t>(trackIndex));
    if (!cursor)
        return -1;
    if (enable && !cursor->enabled) {
        // Whatever comes of it: a track without a handler fails when its unit is due.
        CodecInfo info = {};
        (void)cursor->track->GetTrackInfo(&info, 0);
        (void)cursor->track->SelectUnitHandler(&info);
    }
    cursor->enabled = enable != 0;
    return 0;
}

int32_t KivMp4GetNextUnit(Mp4Demux* demux, AccessUnit* unit) {
    if (!IsLive(demux))
        return -1;
    ModuleLock.Lock();
    const int32_t result = GetNextUnit(*demux, unit);
    ModuleLock.Unlock();
    return result;
}

int32_t KivMp4GetNextUnitData(Mp4Demux* demux, void* destination) {
    if (!IsLive(demux) || !destination)
        return -1;
    const AccessUnit* unit = demux->activeUnit;
    if (!unit) {
        LogError(demux->logLevel, "GetNextUnitData", 1158, " Not an active AU");
        return -1;
    }
    if (unit->payload && unit->size > 0)
        std::memcpy(destination, unit->payload, static_cast<size_t>(unit->size));
    return 0;
}

int32_t KivMp4Rewind(Mp4Demux* demux) {
    if (!IsLive(demux))
        return -1;
    for (TrackCursor* cursor = demux->trackCursors; cursor; cursor = cursor->next)
        if (cursor->enabled)
            cursor->MoveTo(0);
    return 0;
}

int32_t KivMp4InitUnit(Mp4Demux*, AccessUnit* unit) {
    if (!unit)
        return -1;
    unit->payload = nullptr;
    unit->capacity = 0;
    unit->size = 0;
    return 0;
}

}  // extern "C"
