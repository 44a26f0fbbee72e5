// A sample table of a track, decoded in place.
#pragma once

#include "container/BoxContent.h"

namespace kivmp4 {

/// Entries of equal width after an entry count (ISO/IEC 14496-12, 8.6 and 8.7). Keeps the box's payload until
/// destruction. Zeroed memory is an empty table.
class Table {
public:
    /// @param box      may be null
    /// @param width    bytes of an entry, a multiple of 4
    /// @param countAt  content offset of the count; the entries follow it
    /// @return false when the box cannot be loaded or is too short for the count
    bool Acquire(Mp4Box* box, uint32_t width, size_t countAt = 4) {
        const size_t first = countAt + 4;
        if (!content.Acquire(box) || content->size < first)
            return false;
        entries = content->data + first;
        entryWidth = width;
        // A forged count must not carry anybody past the payload.
        const size_t present = (content->size - first) / width;
        stated = content->BE32(countAt);
        count = stated < present ? stated : static_cast<uint32_t>(present);
        return true;
    }
    /// Gives the payload back: an empty table again.
    void Release() {
        content.Release();
        stated = count = 0;
    }

    uint8_t Version() const { return content->U8(0); }
    /// Entries that are stated and present.
    uint32_t Count() const { return count; }
    uint32_t Stated() const { return stated; }

    /// @param entry   below Count()
    /// @param column  counts the words of an entry
    uint32_t Word(uint32_t entry, uint32_t column = 0) const { return ReadBE32(At(entry) + size_t{4} * column); }
    /// Of the only column of a table, from one entry to before another, which is not above Count().
    uint64_t Sum(uint32_t from, uint32_t to) const {
        uint64_t sum = 0;
        for (const uint8_t *word = entries + size_t{4} * from, *end = entries + size_t{4} * to; word < end; word += 4)
            sum += ReadBE32(word);
        return sum;
    }
    uint64_t LongWord(uint32_t entry) const { return ReadBE64(At(entry)); }
    /// A field before the count, by its content offset.
    uint32_t Field(size_t offset) const { return content->BE32(offset); }

private:
    const uint8_t* At(uint32_t entry) const { return entries + size_t{entryWidth} * entry; }

    BoxContent content;
    const uint8_t* entries = nullptr;  // in the content
    uint32_t entryWidth = 0;
    uint32_t stated = 0;
    uint32_t count = 0;
};

}  // namespace kivmp4
