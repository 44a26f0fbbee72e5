// Building the movie from "moov" and taking it down (ISO/IEC 14496-12, 8.2).
#include "container/FileMovie.h"

#include "support/Log.h"
#include "support/Wrap.h"

namespace kivmp4 {

FileMovie::FileMovie(Mp4Box* rootBox, const ClientAllocator* memory, int32_t level)
    : root(rootBox), allocator(memory), logLevel(level) {
    lock.Create("DemuxStlHandler");
    if (Mp4Box* moov = root->FindChild(FourCc("moov"))) {
        ReadHeader(*moov);
        const uint32_t children = moov->GetChildCount();
        uint32_t trackIndex = 0;
        for (uint32_t position = 0; position < children; ++position) {
            Mp4Box* child = moov->GetChild(position);
            if (child->GetType() == FourCc("trak"))
                AddTrack(*child, trackIndex++);
        }
    }
    LogDebug(logLevel, "Movie", 315, " Num of valid tracks: %d ", static_cast<int>(TrackCount()));
}

FileMovie::~FileMovie() {
    for (uint32_t position = 0; position < tracks.Count(); ++position)
        ModuleDelete(tracks.At(position));
    while (tracks.Count() > 0) {
        lock.Lock();
        tracks.RemoveLast();
        lock.Unlock();
    }
    lock.Delete();
}

// A header that is missing its fields is ignored: the movie has no duration then.
void FileMovie::ReadHeader(Mp4Box& moov) {
    const BoxContent mvhd(moov.FindChild(FourCc("mvhd")));
    if (!mvhd)
        return;
    const bool version1 = mvhd->U8(0) == 1;
    if (!mvhd->Has(0, version1 ? 32 : 20))
        return;
    timescale = mvhd->BE32(version1 ? 20 : 12);
    duration = version1 ? static_cast<int64_t>(mvhd->BE64(24)) : static_cast<int32_t>(mvhd->BE32(16));
    duration100us = DivideOrZero(WrapMultiply(duration, 10000), timescale);
}

// Without memory for it the track is passed over.
void FileMovie::AddTrack(Mp4Box& trakBox, uint32_t trackIndex) {
    Track* track = ModuleNew<Track>(trakBox, timescale, duration100us, trackIndex, allocator, logLevel);
    if (!track)
        return;
    if (!track->IsValid()) {
        LogError(logLevel, "Movie", 309, " Invalid Track ");
        ModuleDelete(track);
        return;
    }
    lock.Lock();
    const bool listed = tracks.Append(track);
    lock.Unlock();
    if (!listed)
        ModuleDelete(track);
}

}  // namespace kivmp4
