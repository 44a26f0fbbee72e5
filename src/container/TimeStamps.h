// When each sample of a track is decoded and presented and for how long.
#pragma once

#include <cstdint>

#include "container/RunTable.h"
#include "support/Wrap.h"

namespace kivmp4 {

/// "stts" and "ctts" (ISO/IEC 14496-12, 8.6.1), decoded in place. Lookups start from where the last one stopped, so
/// they move caches: one thread at a time. Every index is safe. All times handed out are 90 kHz ticks; the caches count
/// media units.
class TimeStamps {
public:
    /// Loads the tables below `stbl` and keeps them until destruction.
    /// @param mediaTimescale  units per second; 0 makes every time 0
    /// @param delay           of the edit list, 90 kHz ticks
    /// @return false without a readable "stts"
    [[nodiscard]] bool Parse(uint32_t mediaTimescale, int64_t delay, Mp4Box& stbl);

    /// @return 0 past the last sample, delay or not
    int64_t GetDecodeTime(int32_t sample);
    int64_t GetCompositionOffset(int32_t sample);
    int64_t GetPresentationTime(int32_t sample) {
        const int64_t decodeTime = GetDecodeTime(sample);
        return WrapAdd(decodeTime, GetCompositionOffset(sample));
    }
    int64_t GetSampleDuration(int32_t sample);

    /// @param time  90 kHz ticks
    /// @return the sample that belongs to the time, the table's end included; -1 when there is none
    int32_t GetSampleIndex(int64_t time);

private:
    uint32_t Count(uint32_t entry) const { return stts.CountOf(entry); }
    uint32_t Delta(uint32_t entry) const { return stts.ValueOf(entry); }
    int64_t EntryDuration(uint32_t entry) const;
    int64_t ToTicks(int64_t mediaUnits) const;
    int64_t ToMediaUnits(int64_t ticks) const;
    bool FindEntry(int32_t sample);
    void StepForward();
    void StepBack();
    int32_t CompositionUnits(int32_t sample);
    int32_t SampleAt(int32_t first, int64_t offset, uint32_t entry) const;
    int32_t SearchForward(int64_t target);
    int32_t SearchBackward(int64_t target);

    uint32_t timescale = 0;
    int64_t initialOffset = 0;  // 90 kHz ticks
    RunTable stts;
    RunTable ctts;
    // The cached "stts" entry, its first sample, and the media time at which it begins.
    int32_t dtsFirstSample = 0;
    uint32_t dtsEntry = 0;
    int64_t dtsEntryStart = 0;
    float scale = 0;  // ticks per media unit
};

}  // namespace kivmp4
