// The times that the searches of a track compare.
#pragma once

#include <cstdint>

#include "container/RunTable.h"
#include "support/ClientMemory.h"

namespace kivmp4 {

/// A decode and a presentation time for each sample that "stts" speaks of, in 90 kHz ticks without the edit list's delay.
/// The player is asked for an array of either, since what a file needs of it must not depend on how searches work, but
/// the tables tell the times as fast: nothing is written. Look-ups move cursors: one thread at a time.
class SearchTimes {
public:
    SearchTimes() = default;
    SearchTimes(const SearchTimes&) = delete;
    SearchTimes& operator=(const SearchTimes&) = delete;
    ~SearchTimes();

    /// @param memory          borrowed
    /// @param mediaTimescale  units per second; 0 makes every time 0
    void Begin(const ClientAllocator* memory, uint32_t mediaTimescale);

    /// Loads "stts", or the offsets of "ctts". A table that was refused is as none. The texts of the log are the parse
    /// steps' own.
    [[nodiscard]] bool ParseSTTS(Mp4Box& box, int32_t logLevel);
    [[nodiscard]] bool ParseCTTS(Mp4Box& box, int32_t logLevel);

    /// Whether there is a table of decode times, if only of none.
    bool Exist() const { return decodeRuns.Entries() != 0; }
    /// @return 0 past the end
    int64_t DecodeTime(uint32_t sample);
    /// Presentation times are compared as unsigned numbers, so one before 0 counts as very late. @return 0 past the end
    uint64_t Time(uint32_t sample);

    /// Finds the first sample at or before the time whose successor lies after it.
    /// @return false when the time lies at or after the last sample's
    bool FindCandidate(uint64_t time, uint32_t& candidate);

private:
    bool AskForDecodeTimes(int32_t logLevel);
    bool AskForOffsets(int32_t logLevel);
    int64_t ToTicks(uint64_t mediaTime) const;
    uint32_t FirstAfter(int64_t ticks);
    void LearnOffsetBounds();
    bool Scan(uint32_t from, uint32_t end, uint64_t time, uint32_t& candidate);

    const ClientAllocator* allocator = nullptr;  // borrowed
    uint32_t timescale = 0;
    uint32_t count = 0;           // samples with a decode time
    void* decodeTimes = nullptr;  // owned, as the other: the player's memory
    void* compositionOffsets = nullptr;
    RunTable decodeRuns;
    RunTable offsetRuns;
    // No offset lies outside of these, in ticks; known from the first search on.
    int64_t leastOffset = 0;
    int64_t greatestOffset = 0;
    bool boundsKnown = false;
};

}  // namespace kivmp4
