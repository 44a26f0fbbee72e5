// A track's sync and time tables, for seeking and navigation.
#include "container/Track.h"

#include "support/ClientMemory.h"
#include "support/Log.h"

namespace kivmp4 {
namespace {

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
    if (!decodeRuns.Acquire(stts) || decodeRuns.Entries() == 0)
        return false;
    WorkingArrays arrays(allocator);
    const int needed = LowBits(uint64_t{decodeRuns.Entries()} * 4);
    if (!arrays.AllocateCounts(decodeRuns.Entries())) {
        LogDebug(logLevel, "ParseSTTS", 673, " Cannot allocate memory of size(%d) ", needed);
        return false;
    }
    if (!arrays.AllocateValues(decodeRuns.Entries())) {
        LogError(logLevel, "ParseSTTS", 680, " Cannot allocate memory of size(%d) ", needed);
        return false;
    }
    const uint64_t samples = decodeRuns.Samples();
    if (samples > INT32_MAX || (samples > 0 && !(decodeTimes = ClientAlloc(allocator, 4, samples * sizeof(int64_t))))) {
        LogError(logLevel, "ParseSTTS", 697, " Unable to allcoate enough memory ! ");
        return false;
    }
    sampleCount = static_cast<uint32_t>(samples);
    sttsEntryCount = decodeRuns.Entries();
    return true;
}

bool Track::ParseCTTS(Mp4Box& ctts) {
    if (!compositionRuns.Acquire(ctts))
        return false;
    WorkingArrays arrays(allocator);
    if (!arrays.AllocateCounts(compositionRuns.Entries()) || !arrays.AllocateValues(compositionRuns.Entries()))
        return false;
    const uint64_t samples = compositionRuns.Samples();
    if (samples == 0)
        return true;
    if (samples <= INT32_MAX)
        compositionOffsets = ClientAlloc(allocator, 8, samples * sizeof(int64_t));
    if (!compositionOffsets) {
        LogError(logLevel, "ParseCTTS", 924, " Cannot allocate memory for CTTS box, required free space (%d)  ",
                 LowBits(samples * 8));
        return false;
    }
    return true;
}

}  // namespace kivmp4
