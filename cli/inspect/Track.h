// What the boxes of one track say.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "inspect/Box.h"
#include "inspect/SampleEntry.h"

namespace kivmp4::inspect {

/// A table of numbers of equal size, kept as in the file. It has only those entries that the file really holds.
struct Table {
    const Box* box = nullptr;  // null: the track has no such table
    uint32_t claimed = 0;      // entries that its header announces
    uint32_t count = 0;        // entries that are there
    uint32_t entrySize = 0;    // bytes
    uint64_t entriesAt = 0;    // file offset of the first entry
    bool tooLarge = false;     // not loaded: above the limit for a table
    Bytes bytes = {};          // count * entrySize

    explicit operator bool() const { return box != nullptr; }
    /// The 32-bit number `field` of an entry; `entry` is below `count`.
    uint32_t At(uint32_t entry, uint32_t field = 0) const {
        return static_cast<uint32_t>(ReadNumber(bytes.data() + size_t{entry} * entrySize + field * 4, 4));
    }
    uint64_t At64(uint32_t entry) const {
        return ReadNumber(bytes.data() + size_t{entry} * entrySize, static_cast<int>(entrySize));
    }
    uint64_t OffsetOf(uint32_t entry) const { return entriesAt + uint64_t{entry} * entrySize; }
};

/// One entry of an edit list. Duration in movie units, media time in media units, -1 for an empty edit.
struct Edit {
    uint64_t duration = 0;
    int64_t mediaTime = 0;
    uint32_t rate = 0x10000;  // 16.16
};

struct Track {
    const Box* box = nullptr;  // the "trak"
    uint32_t trakIndex = 0;    // among all of them, from 0
    uint32_t id = 0;
    uint32_t headerFlags = 0;  // of tkhd
    int rotation = 0;  // degrees clockwise to turn the picture upright: 0, 90, 180 or 270; -1 for other matrices
    bool mirrored = false;
    uint32_t width = 0, height = 0;  // as to be shown, whole pixels
    uint64_t headerDuration = 0;     // of tkhd, in movie units
    std::vector<Edit> edits = {};
    bool hasEdits = false;  // has an "elst", empty or not
    uint32_t timescale = 0;
    uint64_t duration = 0;      // of mdhd, in media units; all ones of its width when unknown
    std::string language = {};  // three letters
    std::string handler = {};   // "vide", "soun", ...
    std::vector<SampleEntry> entries = {};
    uint32_t claimedEntries = 0;  // that stsd announces
    Table stts, ctts, stss, stsz, stsc, stco, elst;
    uint32_t constantSize = 0;  // of stsz, 0 when each sample has its own
    uint32_t sampleCount = 0;   // of stsz; never more than its table holds, or than one past what fits the file
    bool limited = false;       // there are more samples than are looked at: the last ones are left out
    /// Why the module does not list this track, or nothing. Listed tracks are numbered from 0 in the order of the file.
    std::string refusal = {};
    /// Why the module lists the track, but can neither describe nor deliver it; or nothing.
    std::string undelivered = {};

    bool Played() const { return refusal.empty() && undelivered.empty(); }
    bool Enabled() const { return headerFlags & 1; }
    Kind MediaKind() const;
    const SampleEntry* Entry() const { return entries.empty() ? nullptr : &entries[0]; }
    /// Where `moov/trak[n]/mdia/minf/stbl` is, or null.
    const Box* Stbl() const { return box->Find("mdia/minf/stbl"); }
};

/// Reads the track below `trak`. Missing boxes leave their fields as they are.
Track ReadTrack(const File& file, const Box& trak, uint32_t trakIndex);

}  // namespace kivmp4::inspect
