// Opening the file and its movie, and taking both down again.
#include <cstring>

#include "api/Mp4Demux.h"
#include "platform/Clock.h"
#include "support/Log.h"

using namespace kivmp4;

namespace {

constexpr int kSizeAsks = 561;        // the last one fails whatever it answers
constexpr uint32_t kSizeDelay = 900;  // microseconds

// Over the candidate's four characters: a longer extension that begins with one of them matches too.
bool Matches(const char* extension, const char* candidate) { return std::strncmp(extension, candidate, 4) == 0; }

}  // namespace

int32_t Mp4Demux::OpenCheck(const char* path, const FileInterface* file, const ClientAllocator* memory,
                            int32_t basePriority, int32_t level) {
    logLevel = level;
    allocator = memory;
    return CheckExtension(path) ? OpenFile(path, file, basePriority) : -1;
}

bool Mp4Demux::CheckExtension(const char* path) {
    const char* extension = std::strrchr(path, '.');
    if (extension) {
        for (const char* known : {".mp4", ".m4v", ".m4a", ".m3d", ".mov"}) {
            if (!Matches(extension, known))
                continue;
            is3D = Matches(extension, ".m3d");
            if (is3D)
                LogDebug(logLevel, "OpenCheck", 410, "URI file extension OK [ 3D ]");
            else
                LogDebug(logLevel, "OpenCheck", 413, "URI file extension OK");
            return true;
        }
        if (Matches(extension, ".mpd")) {
            LogError(logLevel, "OpenCheck", 436, "URI Invalid (DASH Streaming not available)");
            return false;
        }
        if (Matches(extension, ".ism")) {
            LogError(logLevel, "OpenCheck", 458, "URI Invalid (Smooth Streaming not available)");
            return false;
        }
    }
    LogDebug(logLevel, "OpenCheck", 463, "URI file extension OK");
    return true;
}

int32_t Mp4Demux::OpenFile(const char* path, const FileInterface* file, int32_t basePriority) {
    FileReader* reader = ModuleNew<FileReader>(logLevel);
    source = reader ? ModuleNew<FileSource>(reader, logLevel) : nullptr;
    if (!source) {
        ModuleDelete(reader);
        return -1;
    }
    if (reader->Open(path, 0, file, basePriority) == ReadStatus::Done)
        return 0;
    CloseSource();
    return -1;
}

int32_t Mp4Demux::Open(uint32_t& tracks, int64_t& duration) {
    duration = -1;
    int64_t fileSize = 0;
    if (movie || !source || !WaitForSize(fileSize) || !OpenMovie(fileSize))
        return -1;
    for (uint32_t position = 0; position < movie->TrackCount(); ++position) {
        if (!AddCursor(movie->GetTrack(position))) {
            RemoveCursors();
            CloseMovie();  // the source stays: opening may be tried again
            return -1;
        }
    }
    tracks = movie->TrackCount();
    duration = movie->Duration100us();
    return 0;
}

bool Mp4Demux::WaitForSize(int64_t& size) {
    for (int ask = 1;; ++ask) {
        size = source->GetSize();
        if (ask == kSizeAsks) {
            LogDebug(logLevel, "Open", 493, "TIMEOUT! OPEN!");
            return false;
        }
        if (size > 0)
            return true;
        platform::DelayMicroseconds(kSizeDelay);
    }
}

bool Mp4Demux::OpenMovie(int64_t fileSize) {
    Mp4Box* root = ModuleNew<Mp4Box>(allocator, source, int64_t{0}, fileSize, 0u, 0u);
    if (!root)
        return false;
    movie = ModuleNew<FileMovie>(root, allocator, logLevel);
    if (!movie) {
        delete root;
        return false;
    }
    if (movie->TrackCount() > 0)
        return true;
    LogError(logLevel, "Open", 518, "ERROR_MP4DEMUX_INVALIDARG2 ");
    CloseSource();
    CloseMovie();
    return false;
}

bool Mp4Demux::AddCursor(Track* track) {
    lock.Lock();
    TrackCursor* cursor = ModuleNew<TrackCursor>();
    if (cursor) {
        cursor->track = track;
        cursor->index = trackCount++;
        cursor->previous = lastCursor;
        (lastCursor ? lastCursor->next : trackCursors) = cursor;
        lastCursor = cursor;
    }
    lock.Unlock();
    return cursor != nullptr;
}

// Last to first, one hold of the lock each.
void Mp4Demux::RemoveCursors() {
    while (trackCount > 0) {
        lock.Lock();
        TrackCursor* cursor = lastCursor;
        lastCursor = cursor->previous;
        (lastCursor ? lastCursor->next : trackCursors) = nullptr;
        ModuleFree(cursor);
        --trackCount;
        lock.Unlock();
    }
}

int32_t Mp4Demux::Close() {
    LogDebug(logLevel, "Close", 1179, "Called ");
    RemoveCursors();
    const int32_t result = CloseSource();
    CloseMovie();
    return result;
}

int32_t Mp4Demux::CloseSource() {
    if (!source)
        return 0;
    const int32_t result = source->Close();
    delete source;
    source = nullptr;
    return result;
}

void Mp4Demux::CloseMovie() {
    ModuleDelete(movie);
    movie = nullptr;
}

TrackCursor* Mp4Demux::CursorAt(uint32_t index) const {
    if (index >= trackCount)
        index = 0;
    TrackCursor* cursor = trackCursors;
    while (cursor && cursor->index != index)
        cursor = cursor->next;
    return cursor;
}

TrackCursor* Mp4Demux::VideoCursor() const {
    TrackCursor* found = nullptr;
    for (TrackCursor* cursor = trackCursors; cursor; cursor = cursor->next)
        if (cursor->enabled && cursor->track->IsVideo())
            found = cursor;
    return found;
}

extern "C" {

int32_t KivMp4Open(Mp4Demux* demux, uint32_t* trackCount, int64_t* duration) {
    if (duration)
        *duration = -1;
    if (!IsLive(demux) || !trackCount || !duration)
        return -1;
    return demux->Open(*trackCount, *duration);
}

}  // extern "C"
