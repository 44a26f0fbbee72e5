// A table of runs: so many consecutive samples have this value.
#pragma once

#include <cstdint>

#include "container/SkipIndex.h"
#include "container/Table.h"

namespace kivmp4 {

/// "stts" or "ctts" (ISO/IEC 14496-12, 8.6.1), decoded in place. A sample near the last one is found by steps, any other
/// through an index of entries. Look-ups move a cursor: one thread at a time. Every index is safe.
class RunTable {
public:
    /// Loads the table and keeps it until Release or destruction. @return false when it is missing or unreadable
    [[nodiscard]] bool Acquire(Mp4Box* box);
    void Release();

    /// Entries that are stated and present.
    uint32_t Entries() const { return table.Count(); }
    /// The sum of their counts.
    uint64_t Samples() const { return samples; }
    /// Of their counts times their values.
    uint64_t Sum() const { return sum; }
    /// Entries before the one with which sample numbers would pass 2^31 - 1: look-ups see no others. So the numbers ascend
    /// from entry to entry, and a search through one table that looks into the other with each step takes a walk along
    /// both, not one walk for each step.
    uint32_t Runs() const { return runs; }
    uint32_t CountOf(uint32_t entry) const { return table.Word(entry); }
    uint32_t ValueOf(uint32_t entry) const { return table.Word(entry, 1); }

    /// @return whether the table has the sample; Value and SumBefore then tell of it
    bool Find(uint32_t sample);
    uint32_t Value() const { return ValueOf(here); }
    /// The values of all samples before the one that was found.
    uint64_t SumBefore(uint32_t sample) const { return place.sum + (sample - place.sample) * uint64_t{Value()}; }

    /// @param wanted  from 1 to Sum() less the last sample's value
    /// @return the first sample before which the values add up to as much
    uint32_t FirstWithSum(uint64_t wanted);

private:
    struct Place {
        uint64_t sample;  // the run's first
        uint64_t sum;     // of the values of all samples before
    };
    void Pass(Place& before, uint32_t passed) const;
    bool HasIndex();
    void GoTo(uint32_t block);
    bool SkipToNear(uint32_t sample);

    Table table;
    uint64_t samples = 0;
    uint64_t sum = 0;
    uint32_t runs = 0;
    // The cursor: an entry, and where its run begins.
    uint32_t here = 0;
    Place place = {};
    SkipIndex<Place> index;
};

}  // namespace kivmp4
