// One usable track of the movie: its media header, sample tables and coded stream.
#pragma once

#include <cstdint>

#include "KivMp4.h"
#include "codec/ElementaryStream.h"
#include "container/KeyMap.h"
#include "container/RunTable.h"
#include "container/SampleMap.h"
#include "container/TickSteps.h"
#include "container/TimeStamps.h"
#include "support/CriticalSmart.h"

namespace kivmp4 {

class FileMovie;

/// Built while the movie is opened. The lookups move caches afterwards: one thread at a time. Missing tables make them
/// answer 0 or -1; every index is safe. Times are 90 kHz ticks.
class Track {
public:
    /// Parses the track; IsValid tells whether that succeeded.
    /// @param trakBox  borrowed, as the movie
    /// @param index    position of `trakBox` among all "trak" boxes
    Track(Mp4Box& trakBox, FileMovie& owner, uint32_t index, const ClientAllocator* memory, int32_t level);
    ~Track();

    bool IsValid() const { return trak != nullptr; }
    uint32_t TrackIndex() const { return trackIndex; }

    bool IsVideo() const { return elementaryStream->IsVideo(); }
    bool IsAudio() const { return elementaryStream->IsAudio(); }
    bool IsText() const { return elementaryStream->IsText(); }

    /// Fills the player's record and adds the language. @param index  of the configuration: only 0 exists
    [[nodiscard]] bool GetTrackInfo(CodecInfo* record, uint32_t index) const;
    [[nodiscard]] bool SelectUnitHandler(const CodecInfo* record) {
        return elementaryStream->SelectUnitHandler(record);
    }
    UnitHandler* GetUnitHandler() const { return elementaryStream->GetUnitHandler(); }

    // Questions about one sample, answered by the tables.
    /// Samples with a size; compared with sample indices as a signed number.
    int32_t SampleCount() const { return sampleMap ? static_cast<int32_t>(sampleMap->SampleCount()) : 0; }
    uint32_t GetSampleSize(int32_t sample) const { return sampleMap ? sampleMap->GetSampleSize(sample) : 0; }
    int64_t GetSampleOffset(int32_t sample) {
        return sampleMap ? static_cast<int64_t>(sampleMap->GetSampleOffset(sample)) : 0;
    }
    int32_t GetPrevSyncSample(int32_t sample) { return keyMap ? keyMap->GetPrevSyncSample(sample) : sample; }
    int64_t GetDecodeTime(int32_t sample) { return timeStamps ? timeStamps->GetDecodeTime(sample) : 0; }
    int64_t GetPresentationTime(int32_t sample) { return timeStamps ? timeStamps->GetPresentationTime(sample) : 0; }
    int64_t GetPresentationTime(int32_t sample, int64_t decodeTime) {
        return timeStamps ? timeStamps->GetPresentationTime(sample, decodeTime) : 0;
    }
    int64_t GetSampleDuration(int32_t sample) { return timeStamps ? timeStamps->GetSampleDuration(sample) : 0; }
    int32_t GetSampleIndex(int64_t time) { return timeStamps ? timeStamps->GetSampleIndex(time) : -1; }

    /// Finds the sample from which playing at `time` starts: for a track with sync samples the nearest one.
    /// @param index, jumpTime  receive the sample and its presentation time, the edit list's delay left out
    /// @return false when the time lies at or behind the last sample's; both outs are then untouched
    [[nodiscard]] bool GetJumpSampleIndex(int64_t time, int32_t& index, int64_t& jumpTime);

    /// Finds the sync sample behind (`next`) or before a sample; without a sync table, for tracks other than video, the
    /// sample itself (`syncTime` untouched).
    /// @return false when there is none in that direction; the outs then tell the last sync sample. Backward the first
    ///         one counts as found
    [[nodiscard]] bool GetSyncSampleIndex(bool next, int32_t sample, int32_t& index, int64_t& syncTime);

private:
    // Track.cpp
    bool ReadHeader(Mp4Box& trakBox);
    bool ParseMDIA(Mp4Box& mdia, int64_t initialOffset);
    bool ReadMediaHeader(const ByteView& mdhd);
    void ParseTables(int64_t initialOffset);
    void ParseArrays();
    static int64_t ReadEditList(Mp4Box& edts);

    // SampleDescription.cpp
    bool ParseSTSD(Mp4Box& stsd, int64_t meanSampleDuration);

    // TrackTables.cpp
    bool ParseSTSS(Mp4Box& stss);
    bool ParseSTTS(Mp4Box& stts);
    bool ParseCTTS(Mp4Box& ctts);

    // TrackLookup.cpp
    bool HasDecodeTimes() const { return sttsEntryCount != 0; }
    int64_t ArrayDecodeTime(uint32_t sample);
    uint64_t ArrayTime(uint32_t sample);
    bool TimesAscend();
    bool FindCandidate(uint64_t time, uint32_t& candidate);
    bool FindSyncPair(uint32_t sample, bool behindIncluded, uint32_t& before, uint32_t& behind) const;
    uint32_t SnapToSync(uint32_t candidate) const;
    void MakeGreatestTimes();

    const ClientAllocator* allocator;  // borrowed
    int32_t logLevel;
    Mp4Box* trak = nullptr;            // borrowed; null marks an invalid track
    FileMovie* movie;                  // borrowed
    uint32_t trackIndex;
    uint32_t timescale = 0;            // media units per second
    int64_t duration = 0;              // media units
    char language[3] = {};             // ISO 639-2/T letters
    Mp4Box* stbl = nullptr;            // borrowed
    ElementaryStream* elementaryStream = nullptr;  // never null in a valid track; these four are owned through the record
                                                   // beside them
    CriticalSmart* elementaryStreamOwner = nullptr;
    SampleMap* sampleMap = nullptr;
    CriticalSmart* sampleMapOwner = nullptr;
    KeyMap* keyMap = nullptr;
    CriticalSmart* keyMapOwner = nullptr;
    TimeStamps* timeStamps = nullptr;
    CriticalSmart* timeStampsOwner = nullptr;
    uint32_t* syncSamples = nullptr;   // owned; syncSampleCount sample indices, video with "stss" only
    // Owned; the player's memory for a time of each sample. The tables tell the times as fast, so nothing is written, but
    // what a file needs of the player does not depend on that.
    void* compositionOffsets = nullptr;  // as far as "ctts" goes, video only
    void* decodeTimes = nullptr;
    RunTable compositionRuns;
    RunTable decodeRuns;
    TickSteps decodeTicks;
    uint32_t sttsEntryCount = 0;       // 0 unless the table tells decode times
    uint32_t sampleCount = 0;          // that "stts" speaks of
    uint32_t syncSampleCount = 0;
    bool syncAscending = true;         // the table is in order: it can be searched by halves
    uint64_t* greatestTimes = nullptr;  // owned; greatest array time up to the end of each 64 samples, once searched
    bool mdhdVersion1 = false;
    uint32_t matrix[9] = {};           // of "tkhd", as stored
};

}  // namespace kivmp4
