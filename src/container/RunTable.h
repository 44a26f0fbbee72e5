// A table of runs: so many consecutive samples have this value.
#pragma once

#include <cstdint>

#include "container/BoxContent.h"

namespace kivmp4 {

/// "stts" or "ctts" (ISO/IEC 14496-12, 8.6.1), decoded in place. The next sample is found at once and any other one in
/// logarithmic time. Lookups move a cursor: one thread at a time.
class RunTable {
public:
    RunTable() = default;
    RunTable(const RunTable&) = delete;
    RunTable& operator=(const RunTable&) = delete;
    ~RunTable();

    /// Loads the table and keeps it until destruction. @return false when it cannot be read or is too short for a count
    bool Acquire(Mp4Box& box);
    uint32_t Entries() const { return entries; }
    /// Looks at all entries.
    uint64_t Samples() const;

    /// False for a long table without memory for marks: a search that jumps to and fro would start over each time.
    bool FindsAnywhere() { return entries <= kMarkStep || HaveMarks(); }
    /// @return whether the table, whose Samples() fit in 32 bits, has this one; Value and SumBefore then tell of it
    bool Find(uint32_t sample);
    uint32_t Value() const { return ValueAt(entry); }
    /// Of the values of all samples before the one that was found.
    uint64_t SumBefore(uint32_t sample) const { return start.sum + uint64_t{sample - start.sample} * Value(); }

private:
    static constexpr uint32_t kMarkStep = 64;
    struct Start {
        uint64_t sum;     // of the values of all samples before
        uint32_t sample;
    };

    uint32_t CountAt(uint32_t index) const { return ReadBE32(content->data + kTableHeader + size_t{8} * index); }
    uint32_t ValueAt(uint32_t index) const { return ReadBE32(content->data + kTableHeader + 4 + size_t{8} * index); }
    Start Behind(const Start& before, uint32_t index) const;
    bool HaveMarks();
    void Restart(uint32_t sample);

    BoxContent content;
    uint32_t entries = 0;  // within the payload
    uint32_t entry = 0;    // the cursor, and where its run starts
    Start start = {};
    Start* marks = nullptr;  // owned; where each 64th run starts, for a table longer than that
    bool marksTried = false;
};

}  // namespace kivmp4
