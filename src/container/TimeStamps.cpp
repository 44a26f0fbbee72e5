// Walks over the time tables.
#include "container/TimeStamps.h"

#include "support/Ticks.h"

namespace kivmp4 {

bool TimeStamps::Parse(uint32_t mediaTimescale, int64_t delay, Mp4Box& stbl) {
    timescale = mediaTimescale;
    initialOffset = delay;
    scale = timescale ? static_cast<float>(kTicksPerSecond) / static_cast<float>(timescale) : 0.0f;
    if (!stts.Acquire(stbl.FindChild(FourCc("stts"))))
        return false;
    Mp4Box* box = stbl.FindChild(FourCc("ctts"));
    return !box || ctts.Acquire(box);
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
    while (dtsEntry < stts.Runs()) {
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

// The sample's composition offset in media units; 0 past the table's end. A number below 0, which forged sync samples
// have, counts to the first entry, whatever that holds.
int32_t TimeStamps::CompositionUnits(int32_t sample) {
    if (sample < 0)
        return ctts.Runs() > 0 ? static_cast<int32_t>(ctts.ValueOf(0)) : 0;
    return ctts.Find(static_cast<uint32_t>(sample)) ? static_cast<int32_t>(ctts.Value()) : 0;
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
    for (; dtsEntry < stts.Runs(); StepForward()) {
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
