// Track information, time conversions, trick mode, and the operations that this module does not have.
#include "api/Mp4Demux.h"
#include "support/Log.h"
#include "support/Ticks.h"

using namespace kivmp4;

namespace {

constexpr uint64_t kTimeUnitsPerSecond = 10000;  // of 100 microseconds
constexpr uint32_t kLevelMark3D = 100;

// @return null on a handle that is not open
FileReader* StreamingReader(const Mp4Demux* demux) {
    return IsLive(demux) && demux->trackCount != 0 ? demux->source->Reader() : nullptr;
}

}  // namespace

extern "C" {

int32_t KivMp4GetTrackInfo(Mp4Demux* demux, int32_t trackIndex, CodecInfo* info) {
    // A negative index passes and means the first track.
    if (!IsLive(demux) || !info || !demux->movie || trackIndex >= static_cast<int32_t>(demux->movie->TrackCount()))
        return -1;
    const TrackCursor* cursor = demux->CursorAt(static_cast<uint32_t>(trackIndex));
    if (!cursor->track->GetTrackInfo(info, 0))
        return -1;
    if (info->kind == 0) {
        info->maxTrackOffset = static_cast<uint32_t>(demux->maxTrackOffset);
        if (demux->is3D)
            info->level += kLevelMark3D;
    }
    return 0;
}

uint64_t KivMp4TicksToSeconds(uint64_t ticks) { return ticks / kTicksPerSecond; }

uint64_t KivMp4TimeToTicks(uint64_t time100us) { return time100us * kTicksPerSecond / kTimeUnitsPerSecond; }

void KivMp4FlushFileReader(Mp4Demux* demux) {
    FileReader* reader = StreamingReader(demux);
    if (!reader)
        return;
    LogDebug(demux->logLevel, "FlushFileReader", 1148, "Flush File Reader before moving to Trick mode ");
    reader->Flush();
}

void KivMp4ResumeFileReader(Mp4Demux* demux) {
    if (FileReader* reader = StreamingReader(demux))
        reader->ResumeBuffering();
}

int32_t KivMp4SetAvailableBW(Mp4Demux* demux, ...) {
    if (IsLive(demux))
        LogWarning(demux->logLevel, "SetAvailableBW", 1270, " Cannot set Bandwidth ");
    return -1;
}

int32_t KivMp4GetAvailableBW(Mp4Demux* demux, ...) {
    if (IsLive(demux))
        LogWarning(demux->logLevel, "GetAvailableBW", 1294, " Cannot set Bandwidth");
    return -1;
}

int32_t KivMp4Unsupported(void) { return -1; }

}  // extern "C"
