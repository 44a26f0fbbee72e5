// Walks over the time tables.
#include "container/TimeStamps.h"

#include "support/Ticks.h"

namespace kivmp4 {
namespace {

// Entries before the one with which sample numbers would pass 2^31 - 1. So the numbers ascend from entry to entry, and a
// search through one table that looks into the other with each step takes a walk along both, not one walk for each step.
uint32_t AscendingEntries(const Table& table) {
    uint64_t samples = 0;
    for (uint32_t entry = 0; entry < table.Count(); ++entry) {
        samples += table.Word(entry);
        if (samples > INT32_MAX)
            return entry;
    }
    return table.Count();
}

}  // namespace

bool TimeStamps::Parse(uint32_t mediaTimescale, int64_t delay, Mp4Box& stbl) {
    timescale = mediaTimescale;
    initialOffset = delay;
    scale = timescale ? static_cast<float>(kTicksPerSecond) / static_cast<float>(timescale) : 0.0f;
    if (!sttsTable.Acquire(stbl.FindChild(FourCc("stts")), 8))
        return false;
    sttsCount = AscendingEntries(sttsTable);
    Mp4Box* ctts = stbl.FindChild(FourCc("ctts"));
    if (!ctts)
        return true;
    if (!cttsTable.Acquire(ctts, 8))
        return false;
    cttsCount = AscendingEntries(cttsTable);
    return true;
}

// Single precision on every target, at 90 kHz too: above 2^24 units the low bits are lost, and players count on it.
int64_t TimeStamps::ToTicks(int64_t mediaUnits) const {
    return TruncateFloat(static_cast<float>(static_cast<double>(mediaUnits)) * scale);
}

int64_t TimeStamps::ToMediaUnits(int64_t ticks) const {
    return timescale ? TruncateFloat(static_cast<float>(ticks) / scale) : 0;
}

// The product wraps in 32 bits.
int64_t TimeStamps::EntryDuration(uint32_t entry) const { return WrapMultiply32(Count(entry), Delta(entry)); }

void TimeStamps::StepForward() {
    dtsEntryStart = WrapAdd(dtsEntryStart, EntryDuration(dtsEntry));
    dtsFirstSample = WrapAdd32(dtsFirstSample, Count(dtsEntry));
    ++dtsEntry;
}

void TimeStamps::StepBack() {
    --dtsEntry;
    dtsFirstSample = WrapSubtract32(dtsFirstSample, Count(dtsEntry));
    dtsEntryStart = WrapSubtract(dtsEntryStart, EntryDuration(dtsEntry));
}

// Moves the cache to the "stts" entry that holds the sample. @return false when none does
bool TimeStamps::FindEntry(int32_t sample) {
    if (sample < dtsFirstSample && dtsEntry == 0)
        return false;
    while (sample < dtsFirstSample && dtsEntry > 0)
        StepBack();
    while (dtsEntry < sttsCount) {
        if (sample < WrapAdd32(dtsFirstSample, Count(dtsEntry)))
            return true;
        StepForward();
    }
    return false;
}

int64_t TimeStamps::GetDecodeTime(int32_t sample) {
    if (!FindEntry(sample))
        return 0;
    const uint32_t within = static_cast<uint32_t>(WrapSubtract32(sample, static_cast<uint32_t>(dtsFirstSample)));
    const int64_t mediaTime = WrapAdd(dtsEntryStart, WrapMultiply32(within, Delta(dtsEntry)));
    return WrapAdd(ToTicks(mediaTime), initialOffset);
}

int64_t TimeStamps::GetSampleDuration(int32_t sample) { return FindEntry(sample) ? ToTicks(Delta(dtsEntry)) : 0; }

// Moves the cache to an entry at or before the sample's, and near it.
// @return whether there is an index
bool TimeStamps::SkipToNear(int32_t sample) {
    const auto next = [this](uint64_t first, uint32_t entry) { return first + cttsTable.Word(entry); };
    if (!ctsFirstSamples.Make(cttsCount, next))
        return false;
    const uint32_t block = sample < 0 ? 0 : ctsFirstSamples.FindBlock(static_cast<uint32_t>(sample));
    ctsEntry = block * SkipIndex::kStep;
    ctsFirstSample = static_cast<int32_t>(ctsFirstSamples[block]);
    return true;
}

// The sample's composition offset in media units; 0 outside the table. A search backward asks for one sample after the
// other: near ones are reached step by step, others through the index.
int32_t TimeStamps::CompositionUnits(int32_t sample) {
    for (uint32_t steps = 0; sample < ctsFirstSample && ctsEntry > 0; ++steps) {
        if (steps == SkipIndex::kStep && SkipToNear(sample))
            break;
        --ctsEntry;
        ctsFirstSample = WrapSubtract32(ctsFirstSample, cttsTable.Word(ctsEntry));
    }
    for (uint32_t steps = 0; ctsEntry < cttsCount; ++steps) {
        if (steps == SkipIndex::kStep)
            SkipToNear(sample);
        const int32_t end = WrapAdd32(ctsFirstSample, cttsTable.Word(ctsEntry));
        if (sample < end)
            return static_cast<int32_t>(cttsTable.Word(ctsEntry, 1));
        ctsFirstSample = end;
        ++ctsEntry;
    }
    return 0;
}

int64_t TimeStamps::GetCompositionOffset(int32_t sample) { return ToTicks(CompositionUnits(sample)); }

int32_t TimeStamps::GetSampleIndex(int64_t time) {
    const int64_t target = ToMediaUnits(WrapSubtract(time, initialOffset));
    return target >= dtsEntryStart ? SearchForward(target) : SearchBackward(target);
}

// @return `first` plus the samples of the entry's delta that fit into `offset`
int32_t TimeStamps::SampleAt(int32_t first, int64_t offset, uint32_t entry) const {
    return WrapAdd32(first, static_cast<uint32_t>(DivideOrZero(offset, Delta(entry))));
}

// An entry's end is compared with the composition offset of the sample after it added, in media units.
int32_t TimeStamps::SearchForward(int64_t target) {
    for (; dtsEntry < sttsCount; StepForward()) {
        const int64_t end = WrapAdd(dtsEntryStart, EntryDuration(dtsEntry));
        const int32_t offset = CompositionUnits(WrapAdd32(dtsFirstSample, Count(dtsEntry)));
        if (target <= WrapAdd(end, offset))
            return SampleAt(dtsFirstSample, WrapSubtract(target, dtsEntryStart), dtsEntry);
    }
    return -1;
}

// The cache stays after the entry that answers: meant, the next lookup starts from there.
int32_t TimeStamps::SearchBackward(int64_t target) {
    for (; dtsEntry > 0; StepBack()) {
        const uint32_t previous = dtsEntry - 1;
        const int64_t start = WrapSubtract(dtsEntryStart, EntryDuration(previous));
        const int32_t first = WrapSubtract32(dtsFirstSample, Count(previous));
        if (WrapAdd(start, CompositionUnits(first)) <= target)
            return SampleAt(first, WrapSubtract(target, start), previous);
    }
    return -1;
}

}  // namespace kivmp4
