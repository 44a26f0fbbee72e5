// The parsed form of one file: its movie header and its valid tracks.
#pragma once

#include <cstdint>

#include "KivMp4.h"
#include "codec/SampleReader.h"
#include "container/Track.h"

namespace kivmp4 {

/// Built completely while the file is opened; owns its tracks and the box tree. On the module heap.
class FileMovie final : public SampleReader {
public:
    /// @param rootBox  owned from here on
    FileMovie(Mp4Box* rootBox, const ClientAllocator* memory, int32_t level);
    ~FileMovie();

    /// Valid tracks, in the order of their "trak" boxes.
    uint32_t TrackCount() const { return tracks.Count(); }
    /// @return null for a position that is not below TrackCount()
    Track* GetTrack(uint32_t position) const { return position < tracks.Count() ? tracks.At(position) : nullptr; }

    /// Blocks until the bytes are there. @return 0, or 3 when they cannot be had
    int32_t ReadData(int64_t offset, uint32_t size, void* destination) override {
        return static_cast<int32_t>(root->Read(offset, size, destination));
    }

    /// Units of 100 microseconds.
    int64_t Duration100us() const { return duration100us; }

private:
    void ReadHeader(Mp4Box& moov);
    void AddTrack(Mp4Box& trakBox, uint32_t trackIndex);

    Owned<Mp4Box> root;
    const ClientAllocator* allocator;  // borrowed
    IndexedList<Track> tracks;         // owned; guarded by lock while it changes
    platform::LightMutex lock;
    uint32_t timescale = 0;  // units per second
    int64_t duration = 0;    // timescale units
    int64_t duration100us = 0;
    int32_t logLevel;
};

}  // namespace kivmp4
