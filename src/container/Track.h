// One usable track of the movie: its media header, sample tables and coded stream.
#pragma once

#include <cstdint>

#include "KivMp4.h"
#include "codec/ElementaryStream.h"
#include "container/KeyMap.h"
#include "container/SampleMap.h"
#include "container/SearchTimes.h"
#include "container/TimeStamps.h"
#include "support/CriticalSmart.h"

namespace kivmp4 {

/// Built while the movie is opened. The lookups move caches afterwards: one thread at a time. Missing tables make them
/// answer 0 or -1; every index is safe. Times are 90 kHz ticks.
class Track {
public:
    /// Parses the track; IsValid tells whether that succeeded.
    /// @param trakBox             borrowed
    /// @param movieTimescale      units per second, of edit lists
    /// @param movieDuration100us  in units of 100 microseconds
    /// @param index               position of `trakBox` among all "trak" boxes
    Track(Mp4Box& trakBox, uint32_t movieTimescale, int64_t movieDuration100us, uint32_t index,
          const ClientAllocator* memory, int32_t level);
    ~Track();
    Track(const Track&) = delete;
    Track& operator=(const Track&) = delete;

    bool IsValid() const { return trak != nullptr; }
    uint32_t TrackIndex() const { return trackIndex; }

    bool IsVideo() const { return elementaryStream->IsVideo(); }
    bool IsAudio() const { return elementaryStream->IsAudio(); }
    bool IsText() const { return elementaryStream->IsText(); }

    /// Fills the player's record and adds the language.
    /// @param record  not null
    /// @param index   of the configuration: only 0 exists
    [[nodiscard]] bool GetTrackInfo(CodecInfo* record, uint32_t index) const;
    [[nodiscard]] bool SelectUnitHandler(const CodecInfo* record) {
        return elementaryStream->SelectUnitHandler(record);
    }
    UnitHandler* GetUnitHandler() const { return elementaryStream->GetUnitHandler(); }

    // Questions about one sample, answered by the tables.
    /// Samples with a size; compared with sample indices as a signed number.
    int32_t SampleCount() const { return sampleMap.Ask<int32_t>(0, &SampleMap::SampleCount); }
    uint32_t GetSampleSize(int32_t sample) const {
        return sampleMap.Ask<uint32_t>(0, &SampleMap::GetSampleSize, sample);
    }
    int64_t GetSampleOffset(int32_t sample) { return sampleMap.Ask<int64_t>(0, &SampleMap::GetSampleOffset, sample); }
    int32_t GetPrevSyncSample(int32_t sample) { return keyMap.Ask(sample, &KeyMap::GetPrevSyncSample, sample); }
    int64_t GetDecodeTime(int32_t sample) { return timeStamps.Ask<int64_t>(0, &TimeStamps::GetDecodeTime, sample); }
    int64_t GetCompositionOffset(int32_t sample) {
        return timeStamps.Ask<int64_t>(0, &TimeStamps::GetCompositionOffset, sample);
    }
    int64_t GetPresentationTime(int32_t sample) {
        return timeStamps.Ask<int64_t>(0, &TimeStamps::GetPresentationTime, sample);
    }
    int64_t GetSampleDuration(int32_t sample) {
        return timeStamps.Ask<int64_t>(0, &TimeStamps::GetSampleDuration, sample);
    }
    int32_t GetSampleIndex(int64_t time) { return timeStamps.Ask(-1, &TimeStamps::GetSampleIndex, time); }

    /// Finds the sample from which playing at `time` starts: for a track with sync samples the nearest one.
    /// @param index, jumpTime  receive the sample and its presentation time, the edit list's delay left out
    /// @return false when the time lies at or after the last sample's; both outs are then untouched
    [[nodiscard]] bool GetJumpSampleIndex(int64_t time, int32_t& index, int64_t& jumpTime);

    /// Finds the sync sample after (`next`) or before a sample; without a sync table, for tracks other than video, the
    /// sample itself (`syncTime` untouched).
    /// @return false when there is none in that direction; the outs then tell the last sync sample. Backward the first
    ///         one counts as found
    [[nodiscard]] bool GetSyncSampleIndex(bool next, int32_t sample, int32_t& index, int64_t& syncTime);

private:
    // Track.cpp
    bool ReadHeader(Mp4Box& trakBox);
    bool ParseMDIA(Mp4Box& mdia, int64_t initialOffset, int64_t movieDuration100us);
    bool ReadMediaHeader(const ByteView& mdhd);
    void ParseTables(int64_t initialOffset);
    void ParseArrays();
    bool ParseSTSS(Mp4Box& stss);
    static int64_t ReadEditList(Mp4Box& edts);

    // SampleDescription.cpp
    bool ParseSTSD(Mp4Box& stsd, int64_t meanSampleDuration);

    // TrackLookup.cpp
    bool FindSyncPair(uint32_t sample, bool afterIncluded, uint32_t& before, uint32_t& after) const;
    uint32_t SnapToSync(uint32_t candidate) const;

    const ClientAllocator* allocator;  // borrowed
    int32_t logLevel;
    Mp4Box* trak = nullptr;  // borrowed; null marks an invalid track
    uint32_t trackIndex;
    uint32_t timescale = 0;                    // media units per second
    int64_t duration = 0;                      // media units
    char language[3] = {};                     // ISO 639-2/T letters
    Mp4Box* stbl = nullptr;                    // borrowed
    Owned<ElementaryStream> elementaryStream;  // never null in a valid track
    Owned<SampleMap> sampleMap;
    Owned<KeyMap> keyMap;
    Owned<TimeStamps> timeStamps;
    uint32_t* syncSamples = nullptr;  // owned; syncSampleCount sample indices, video with "stss" only
    uint32_t syncSampleCount = 0;
    bool syncAscending = true;  // the table is in order: a binary search finds its entries
    SearchTimes times;          // offsets for video only
    bool mdhdVersion1 = false;
    uint32_t matrix[9] = {};  // of "tkhd", as stored
};

}  // namespace kivmp4
