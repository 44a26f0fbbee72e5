// Sync-sample lookup over a track's raw "stss" table (ISO/IEC 14496-12, 8.6.2).
#pragma once

#include <cstdint>

#include "container/Table.h"

namespace kivmp4 {

/// Owned by its Track. Lookups remember where they stopped: one thread at a time.
class KeyMap {
public:
    /// Loads "stss" below `stbl` and keeps it until destruction.
    /// @return true also without "stss" (then every sample is a sync sample); false when the table cannot be read or
    ///         its version is not 0
    [[nodiscard]] bool Parse(Mp4Box& stbl);

    /// @param sample  index from 0
    /// @return greatest sync sample <= sample; 0 when the first lies above it; the sample itself without a table
    int32_t GetPrevSyncSample(int32_t sample);

private:
    uint32_t EntryAt(uint32_t entry) const { return entries.Word(entry) - 1; }
    bool IsAscending();
    void BinarySearch(uint32_t sample, uint32_t first, uint32_t end);

    Table entries;           // sample numbers from 1
    uint32_t syncCount = 0;  // of them; 0 for a table that is not used
    // The last lookup: what it asked for, the first entry above that, and its answer. A later sample goes on from there.
    uint32_t askedSample = 0;
    uint32_t nextEntry = 0;
    uint32_t answer = 0;
    enum class Order : uint8_t { Unknown, Ascending, Other } order = Order::Unknown;
};

}  // namespace kivmp4
