// Expanding a track's sync and time tables into plain arrays for seeking and navigation.
#include "container/Track.h"

#include "support/Log.h"
#include "support/Wrap.h"

namespace kivmp4 {
namespace {

// Counts and values (deltas or offsets) of a table with entries of two words.
struct PairTable {
    const ByteView& table;
    uint32_t entries;

    explicit PairTable(const ByteView& content) : table(content), entries(TableEntries(content, 8)) {}
    uint32_t CountAt(uint32_t entry) const { return ReadBE32(table.data + kTableHeader + size_t{8} * entry); }
    uint32_t ValueAt(uint32_t entry) const { return ReadBE32(table.data + kTableHeader + 4 + size_t{8} * entry); }

    uint64_t Samples() const {
        uint64_t samples = 0;
        for (uint32_t entry = 0; entry < entries; ++entry)
            samples += CountAt(entry);
        return samples;
    }
};

// What a message that has room for 32 bits tells of a number of bytes.
int LowBits(uint64_t bytes) { return static_cast<int>(static_cast<uint32_t>(bytes)); }

// Room for a copy of a table's two columns while it is looked at. Nothing is copied, but a heap or a player that has no
// room for it fails the table: what a file may need does not depend on how it is read.
struct WorkingArrays {
    const ClientAllocator* allocator;
    uint32_t* counts = nullptr;
    uint32_t* values = nullptr;

    explicit WorkingArrays(const ClientAllocator* memory) : allocator(memory) {}
    WorkingArrays(const WorkingArrays&) = delete;
    WorkingArrays& operator=(const WorkingArrays&) = delete;
    ~WorkingArrays() {
        FreeWords(allocator, counts);
        FreeWords(allocator, values);
    }
    bool AllocateCounts(uint32_t entries) { return (counts = AllocateWords(allocator, entries)) != nullptr; }
    bool AllocateValues(uint32_t entries) { return (values = AllocateWords(allocator, entries)) != nullptr; }
};

}  // namespace

bool Track::ParseSTSS(Mp4Box& stss) {
    const BoxContent table(&stss);
    if (!table || table->size < kTableHeader)
        return false;
    const uint32_t entries = TableEntries(*table, 4);
    syncSamples = AllocateWords(allocator, entries);
    if (!syncSamples) {
        LogError(logLevel, "ParseSTSS", 652, " Cannot allocate memory of size(%d)", LowBits(uint64_t{entries} * 4));
        return false;
    }
    syncSampleCount = entries;
    for (uint32_t entry = 0; entry < entries; ++entry) {
        syncSamples[entry] = ReadBE32(table->data + kTableHeader + size_t{4} * entry) - 1;
        if (entry > 0 && syncSamples[entry] < syncSamples[entry - 1])
            syncAscending = false;
    }
    return true;
}

bool Track::ParseSTTS(Mp4Box& stts) {
    const BoxContent content(&stts);
    const PairTable table(*content);
    if (!content || table.entries == 0)
        return false;
    WorkingArrays arrays(allocator);
    const int needed = LowBits(uint64_t{table.entries} * 4);
    if (!arrays.AllocateCounts(table.entries)) {
        LogDebug(logLevel, "ParseSTTS", 673, " Cannot allocate memory of size(%d) ", needed);
        return false;
    }
    if (!arrays.AllocateValues(table.entries)) {
        LogError(logLevel, "ParseSTTS", 680, " Cannot allocate memory of size(%d) ", needed);
        return false;
    }
    const uint64_t samples = table.Samples();
    if (samples > INT32_MAX || (samples > 0 && !decodeTimes.Allocate(allocator, 4, static_cast<uint32_t>(samples)))) {
        LogError(logLevel, "ParseSTTS", 697, " Unable to allcoate enough memory ! ");
        return false;
    }
    sampleCount = static_cast<uint32_t>(samples);
    sttsEntryCount = table.entries;
    if (!timeStamps || !timeStamps->DecodeTable())  // gone when the first search comes
        FillDecodeTimes(*content);
    return true;
}

bool Track::ParseCTTS(Mp4Box& ctts) {
    const BoxContent content(&ctts);
    if (!content || content->size < kTableHeader)
        return false;
    const PairTable table(*content);
    WorkingArrays arrays(allocator);
    if (!arrays.AllocateCounts(table.entries) || !arrays.AllocateValues(table.entries))
        return false;
    const uint64_t samples = table.Samples();
    if (samples == 0)
        return true;
    if (samples > INT32_MAX || !compositionOffsets.Allocate(allocator, 8, static_cast<uint32_t>(samples))) {
        LogError(logLevel, "ParseCTTS", 924, " Cannot allocate memory for CTTS box, required free space (%d)  ",
                 LowBits(samples * 8));
        return false;
    }
    if (!timeStamps || !timeStamps->CompositionTable())
        FillCompositionOffsets(*content);
    return true;
}

// The arrays are filled by the first search: playing a file through never touches them.
void Track::FillArrays() {
    if (decodeTimes && !decodeTimesFilled)
        FillDecodeTimes(*timeStamps->DecodeTable());
    if (compositionOffsets && !compositionOffsetsFilled)
        FillCompositionOffsets(*timeStamps->CompositionTable());
}

void Track::FillDecodeTimes(const ByteView& stts) {
    decodeTimesFilled = true;
    const PairTable table(stts);
    uint64_t mediaTime = 0;  // cannot wrap: fewer than 2^31 samples
    uint32_t sample = 0;
    for (uint32_t entry = 0; entry < table.entries; ++entry) {
        const uint32_t count = table.CountAt(entry), delta = table.ValueAt(entry);
        const uint64_t end = mediaTime + uint64_t{count} * delta;
        if (timescale && end <= INT64_MAX / 90000) {
            // Quotient and remainder go on from sample to sample: a division for each would take longer than all else.
            const uint64_t step = uint64_t{delta} * 90000;
            uint64_t ticks = mediaTime * 90000 / timescale, rest = mediaTime * 90000 % timescale;
            for (uint32_t left = count; left > 0; --left) {
                decodeTimes.Set(sample++, static_cast<int64_t>(ticks));
                ticks += step / timescale;
                rest += step % timescale;
                if (rest >= timescale) {
                    rest -= timescale;
                    ++ticks;
                }
            }
        } else {
            for (uint32_t left = count; left > 0; --left, mediaTime += delta)
                decodeTimes.Set(sample++, DivideOrZero(static_cast<int64_t>(mediaTime * 90000), timescale));
        }
        mediaTime = end;
    }
}

void Track::FillCompositionOffsets(const ByteView& ctts) {
    compositionOffsetsFilled = true;
    const PairTable table(ctts);
    uint32_t sample = 0;
    for (uint32_t entry = 0; entry < table.entries; ++entry) {
        // The product wraps in 32 bits: an offset beyond 23860 media units comes out wrong.
        const int64_t ticks = DivideOrZero(WrapMultiply32(90000, table.ValueAt(entry)), timescale);
        for (uint32_t left = table.CountAt(entry); left > 0; --left)
            compositionOffsets.Set(sample++, ticks);
    }
}

}  // namespace kivmp4
