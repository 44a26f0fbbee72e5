// Times of samples out of the tables, and the search through them.
#include "container/SearchTimes.h"

#include <algorithm>

#include "support/Log.h"
#include "support/Ticks.h"
#include "support/Wrap.h"

namespace kivmp4 {
namespace {

constexpr uint64_t kLongestTime = INT64_MAX / kTicksPerSecond;  // in media units: beyond, the product with 90000 wraps

// What a message that has room for 32 bits tells of a number of bytes.
int LowBits(uint64_t bytes) { return static_cast<int>(static_cast<uint32_t>(bytes)); }

// Room for a copy of a table's two columns, while the table is parsed. Nothing is copied, but a heap or a player that has
// no room for it fails the table.
class Columns {
public:
    explicit Columns(const ClientAllocator* memory) : allocator(memory) {}
    Columns(const Columns&) = delete;
    Columns& operator=(const Columns&) = delete;
    ~Columns() {
        FreeWords(allocator, counts);
        FreeWords(allocator, values);
    }
    bool AskForCounts(uint32_t entries) { return (counts = AllocateWords(allocator, entries)) != nullptr; }
    bool AskForValues(uint32_t entries) { return (values = AllocateWords(allocator, entries)) != nullptr; }

private:
    const ClientAllocator* allocator;  // borrowed
    uint32_t* counts = nullptr;        // owned, as `values`
    uint32_t* values = nullptr;
};

}  // namespace

SearchTimes::~SearchTimes() {
    ClientFree(allocator, decodeTimes);
    ClientFree(allocator, compositionOffsets);
}

void SearchTimes::Begin(const ClientAllocator* memory, uint32_t mediaTimescale) {
    allocator = memory;
    timescale = mediaTimescale;
}

bool SearchTimes::ParseSTTS(Mp4Box& box, int32_t logLevel) {
    const bool parsed = decodeRuns.Acquire(&box) && AskForDecodeTimes(logLevel);
    if (!parsed)
        decodeRuns.Release();
    return parsed;
}

bool SearchTimes::AskForDecodeTimes(int32_t logLevel) {
    const uint32_t entries = decodeRuns.Entries();
    const uint64_t samples = decodeRuns.Samples();
    const int needed = LowBits(uint64_t{entries} * 4);
    if (entries == 0)
        return false;
    Columns columns(allocator);
    if (!columns.AskForCounts(entries)) {
        LogDebug(logLevel, "ParseSTTS", 673, " Cannot allocate memory of size(%d) ", needed);
        return false;
    }
    if (!columns.AskForValues(entries)) {
        LogError(logLevel, "ParseSTTS", 680, " Cannot allocate memory of size(%d) ", needed);
        return false;
    }
    if (samples > 0 && !(decodeTimes = ClientAlloc(allocator, 4, samples * sizeof(int64_t)))) {
        LogError(logLevel, "ParseSTTS", 697, " Unable to allcoate enough memory ! ");
        return false;
    }
    count = static_cast<uint32_t>(samples);
    return true;
}

bool SearchTimes::ParseCTTS(Mp4Box& box, int32_t logLevel) {
    const bool parsed = offsetRuns.Acquire(&box) && AskForOffsets(logLevel);
    if (!compositionOffsets)
        offsetRuns.Release();
    return parsed;
}

bool SearchTimes::AskForOffsets(int32_t logLevel) {
    const uint64_t samples = offsetRuns.Samples();
    Columns columns(allocator);
    if (!columns.AskForCounts(offsetRuns.Entries()) || !columns.AskForValues(offsetRuns.Entries()))
        return false;
    if (samples == 0)
        return true;
    compositionOffsets = ClientAlloc(allocator, 8, samples * sizeof(int64_t));
    if (!compositionOffsets)
        LogError(logLevel, "ParseCTTS", 924, " Cannot allocate memory for CTTS box, required free space (%d)  ",
                 LowBits(samples * 8));
    return compositionOffsets != nullptr;
}

int64_t SearchTimes::ToTicks(uint64_t mediaTime) const {
    return DivideOrZero(static_cast<int64_t>(mediaTime * kTicksPerSecond), timescale);
}

int64_t SearchTimes::DecodeTime(uint32_t sample) {
    return decodeRuns.Find(sample) ? ToTicks(decodeRuns.SumBefore(sample)) : 0;
}

// The offset's product wraps in 32 bits: one beyond 23860 media units comes out wrong.
uint64_t SearchTimes::Time(uint32_t sample) {
    int64_t offset = 0;
    if (offsetRuns.Find(sample))
        offset = DivideOrZero(WrapMultiply32(kTicksPerSecond, offsetRuns.Value()), timescale);
    return static_cast<uint64_t>(WrapAdd(DecodeTime(sample), offset));
}

// For decode times that do not wrap, and so ascend. @return the first sample that is decoded after the time; `count` when
// none is
uint32_t SearchTimes::FirstAfter(int64_t ticks) {
    if (ticks < 0)
        return 0;
    if (ticks >= DecodeTime(count - 1))
        return count;
    // Quotients of at least ticks + 1 are those of products from here on. Below the last sample's time no product wraps.
    const uint64_t product = (static_cast<uint64_t>(ticks) + 1) * timescale;
    return decodeRuns.FirstWithSum((product + kTicksPerSecond - 1) / kTicksPerSecond);
}

// Quotients rise and fall with their products, so only the outermost products are divided. A sample that "ctts" does not
// speak of has the offset 0.
void SearchTimes::LearnOffsetBounds() {
    if (boundsKnown)
        return;
    boundsKnown = true;
    int64_t least = 0, greatest = 0;
    for (uint32_t entry = 0; entry < offsetRuns.Entries(); ++entry) {
        const int64_t product = WrapMultiply32(kTicksPerSecond, offsetRuns.ValueOf(entry));
        least = std::min(least, product);
        greatest = std::max(greatest, product);
    }
    leastOffset = DivideOrZero(least, timescale);
    greatestOffset = DivideOrZero(greatest, timescale);
}

bool SearchTimes::Scan(uint32_t from, uint32_t end, uint64_t time, uint32_t& candidate) {
    if (from >= end)
        return false;
    bool reached = Time(from - 1) <= time;
    for (uint32_t sample = from; sample < end; ++sample) {
        const bool next = Time(sample) <= time;
        if (reached && !next) {
            candidate = sample - 1;
            return true;
        }
        reached = next;
    }
    return false;
}

// Pictures are reordered, but only as far as offsets go, so few samples are looked at one by one. The first of them may
// lie before time 0, which counts as very late. From the first on that surely does not, a sample after the time is
// decoded after it less the greatest offset, and one at or before it is not decoded after it less the least.
bool SearchTimes::FindCandidate(uint64_t time, uint32_t& candidate) {
    candidate = 0;
    if (count < 2)
        return count == 1;
    if (time < static_cast<uint64_t>(DecodeTime(1)))
        return true;
    if (decodeRuns.Sum() > kLongestTime)  // forged
        return Scan(1, count, time, candidate);
    LearnOffsetBounds();
    const uint32_t first = std::max<uint32_t>(FirstAfter(-leastOffset - 1), 1);
    if (Scan(1, first, time, candidate))
        return true;
    if (time > INT64_MAX)
        return false;
    const int64_t ticks = static_cast<int64_t>(time);
    const uint32_t from = std::max(first, FirstAfter(ticks - greatestOffset));
    const uint32_t last = FirstAfter(ticks < INT64_MAX + leastOffset ? ticks - leastOffset : INT64_MAX);
    return Scan(from, std::min(count, last + 1), time, candidate);
}

}  // namespace kivmp4
