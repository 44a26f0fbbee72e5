// The demux handle: one open file with a cursor into each of its tracks.
#pragma once

#include <cstdint>

#include "KivMp4.h"
#include "container/FileMovie.h"
#include "io/FileSource.h"
#include "platform/LightMutex.h"

namespace kivmp4 {

/// Where delivery stands in one track.
struct TrackCursor {
    bool HasSamplesLeft() const { return nextSample < track->SampleCount(); }
    void MoveTo(int32_t sample) {
        nextSample = sample;
        offsetKnown = false;
    }
    /// Where the next sample lies in the file; looked up once for each place the cursor stands at.
    int64_t NextOffset() {
        if (!offsetKnown)
            nextOffset = track->GetSampleOffset(nextSample);
        offsetKnown = true;
        return nextOffset;
    }

    bool enabled;        // delivery, navigation and seeking consider the track
    Track* track;        // borrowed from the movie
    int32_t nextSample;  // may stand at the sample count: the track is exhausted
    TrackCursor* next;
    TrackCursor* previous;
    uint32_t index;  // position of the track in the movie, and of the cursor in its list
    bool offsetKnown;
    int64_t nextOffset;  // of nextSample, when known
};

/// Serialises delivery and seeking. Exists while a handle does; one for the module, as its heap.
extern platform::LightMutex ModuleLock;

}  // namespace kivmp4

/// In the module heap; the player knows it by its pointer alone.
struct Mp4Demux {
    /// Tests the file name, then opens the file and starts to read it ahead. @return 0 or -1
    int32_t OpenCheck(const char* path, const FileInterface* file, const ClientAllocator* memory, int32_t basePriority,
                      int32_t level);
    /// Waits for the file's size, parses the movie and gives each track a cursor. @return 0 or -1
    int32_t Open(uint32_t& tracks, int64_t& duration);
    /// Takes down cursors, file and movie. @return what closing the file answered; 0 without a file
    int32_t Close();

    /// @return the cursor with that index, the first one for an index beyond the end; null without cursors
    kivmp4::TrackCursor* CursorAt(uint32_t index) const;
    /// The last enabled video track's, which leads navigation and seeking; null without one.
    kivmp4::TrackCursor* VideoCursor() const;

    const ClientAllocator* allocator = nullptr;   // the player's
    kivmp4::FileSource* source = nullptr;         // owned
    kivmp4::FileMovie* movie = nullptr;           // owned; null until opened
    kivmp4::TrackCursor* trackCursors = nullptr;  // owned; guarded by lock while the list changes
    kivmp4::TrackCursor* lastCursor = nullptr;
    uint32_t trackCount = 0;  // cursors in the list
    kivmp4::platform::LightMutex lock;
    AccessUnit* activeUnit = nullptr;   // the player's record last delivered to
    int64_t maxTrackOffset = 0x100000;  // bytes, as the player is told
    int32_t logLevel = 1;
    bool is3D = false;  // the file name ends in ".m3d"

private:
    bool CheckExtension(const char* path);
    int32_t OpenFile(const char* path, const FileInterface* file, int32_t basePriority);
    bool WaitForSize(int64_t& size);
    bool OpenMovie(int64_t fileSize);
    bool AddCursor(kivmp4::Track* track);
    void RemoveCursors();
    int32_t CloseSource();
    void CloseMovie();
};

namespace kivmp4 {

/// Whether the pointer is the handle that exists now. Exports refuse all others like a null handle.
bool IsLive(const Mp4Demux* demux);

/// Formats the cursor's next sample into the record, fills in its times and moves the cursor on.
/// @return 0; -1 without record, movie or unit handler and when formatting fails: the cursor stays
[[nodiscard]] int32_t FetchUnit(TrackCursor& cursor, FileMovie* movie, AccessUnit* unit);

}  // namespace kivmp4
