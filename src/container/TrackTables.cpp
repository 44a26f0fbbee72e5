// A track's sync and time tables, for seeking and navigation (ISO/IEC 14496-12, 8.6).
#include "container/Track.h"
#include "support/Log.h"
#include "support/Ticks.h"
#include "support/Wrap.h"

namespace kivmp4 {
namespace {

// What a message that has room for 32 bits tells of a number of bytes.
int LowBits(uint64_t bytes) { return static_cast<int>(static_cast<uint32_t>(bytes)); }

constexpr uint64_t kLongestTime = INT64_MAX / kTicksPerSecond;  // in media units: beyond, the product wraps

}  // namespace

bool Track::ParseSTSS(Mp4Box& stss) {
    Table table;
    if (!table.Acquire(&stss, 4))
        return false;
    syncSamples = AllocateWords(allocator, table.Count());
    if (!syncSamples) {
        LogError(logLevel, "ParseSTSS", 652, " Cannot allocate memory of size(%d)",
                 LowBits(uint64_t{table.Count()} * 4));
        return false;
    }
    syncSampleCount = table.Count();
    for (uint32_t entry = 0; entry < syncSampleCount; ++entry) {
        syncSamples[entry] = table.Word(entry) - 1;
        if (entry > 0 && syncSamples[entry] < syncSamples[entry - 1])
            syncAscending = false;
    }
    return true;
}

bool Track::ParseSTTS(Mp4Box& stts) {
    Table table;
    if (!table.Acquire(&stts, 8) || table.Count() == 0)
        return false;
    const int needed = LowBits(uint64_t{table.Count()} * 4);
    if (!sttsColumns.AllocateCounts(allocator, table.Count())) {
        LogDebug(logLevel, "ParseSTTS", 673, " Cannot allocate memory of size(%d) ", needed);
        return false;
    }
    if (!sttsColumns.AllocateValues()) {
        LogError(logLevel, "ParseSTTS", 680, " Cannot allocate memory of size(%d) ", needed);
        sttsColumns.Free();
        return false;
    }
    const uint64_t samples = sttsColumns.Copy(table);
    if (samples > 0 && !decodeTimes.Allocate(allocator, 4, samples)) {
        LogError(logLevel, "ParseSTTS", 697, " Unable to allcoate enough memory ! ");
        sttsColumns.Free();
        return false;
    }
    sttsEntryCount = table.Count();
    return true;
}

bool Track::ParseCTTS(Mp4Box& ctts) {
    Table table;
    if (!table.Acquire(&ctts, 8))
        return false;
    if (!cttsColumns.AllocateCounts(allocator, table.Count()) || !cttsColumns.AllocateValues()) {
        cttsColumns.Free();
        return false;
    }
    const uint64_t samples = cttsColumns.Copy(table);
    if (samples > 0 && compositionOffsets.Allocate(allocator, 8, samples))
        return true;
    cttsColumns.Free();
    if (samples == 0)
        return true;
    LogError(logLevel, "ParseCTTS", 924, " Cannot allocate memory for CTTS box, required free space (%d)  ",
             LowBits(samples * 8));
    return false;
}

// Most players never seek, so the arrays are filled by the first search, and the columns go.
void Track::FillArrays() {
    if (sttsColumns.Exist()) {
        FillDecodeTimes();
        sttsColumns.Free();
    }
    if (cttsColumns.Exist()) {
        FillCompositionOffsets();
        cttsColumns.Free();
    }
}

// Each time is the sum of the deltas before it times 90000, divided by the timescale. A division takes longer than all
// else that a sample needs, so quotient and remainder go on from sample to sample.
void Track::FillDecodeTimes() {
    uint64_t time = 0, ticks = 0, rest = 0;  // media units; 90 kHz ticks with what the division leaves
    uint32_t sample = 0;
    for (uint32_t entry = 0; entry < sttsColumns.Entries(); ++entry) {
        const uint64_t delta = sttsColumns.ValueOf(entry);
        const uint64_t deltaTicks = timescale ? delta * kTicksPerSecond / timescale : 0;
        const uint64_t deltaRest = timescale ? delta * kTicksPerSecond % timescale : 0;
        for (uint32_t left = sttsColumns.CountOf(entry); left > 0; --left) {
            const bool wraps = time > kLongestTime;
            decodeTimes.Set(sample++, wraps ? DivideOrZero(static_cast<int64_t>(time * kTicksPerSecond), timescale)
                                            : static_cast<int64_t>(ticks));
            timesAscend = timesAscend && !wraps;
            time += delta;
            ticks += deltaTicks;
            rest += deltaRest;
            if (rest >= timescale) {
                rest -= timescale;
                ticks += timescale != 0;
            }
        }
    }
}

// The product wraps in 32 bits: an offset beyond 23860 media units comes out wrong.
void Track::FillCompositionOffsets() {
    timesAscend = false;
    uint32_t sample = 0;
    for (uint32_t entry = 0; entry < cttsColumns.Entries(); ++entry) {
        const int64_t offset = DivideOrZero(WrapMultiply32(kTicksPerSecond, cttsColumns.ValueOf(entry)), timescale);
        for (uint32_t left = cttsColumns.CountOf(entry); left > 0; --left)
            compositionOffsets.Set(sample++, offset);
    }
}

}  // namespace kivmp4
