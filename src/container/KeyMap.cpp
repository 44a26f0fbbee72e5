// Sync-sample lookup.
#include "container/KeyMap.h"

namespace kivmp4 {

bool KeyMap::Parse(Mp4Box& stbl) {
    Mp4Box* box = stbl.FindChild(FourCc("stss"));
    if (!box)
        return true;
    if (!entries.Acquire(box, 4) || entries.Version() != 0)
        return false;
    syncCount = entries.Count();
    return true;
}

// Looks at the whole table once.
bool KeyMap::IsAscending() {
    if (order == Order::Unknown) {
        order = Order::Ascending;
        for (uint32_t entry = 1; entry < syncCount; ++entry)
            if (EntryAt(entry) < EntryAt(entry - 1))
                order = Order::Other;
    }
    return order == Order::Ascending;
}

// Sets nextEntry to the first entry above the sample; it lies between `first` and `end`, both included.
void KeyMap::BinarySearch(uint32_t sample, uint32_t first, uint32_t end) {
    while (first < end) {
        const uint32_t middle = first + (end - first) / 2;
        if (EntryAt(middle) <= sample)
            first = middle + 1;
        else
            end = middle;
    }
    nextEntry = first;
    answer = first > 0 ? EntryAt(first - 1) : 0;
}

// A scan that stops at the first entry above the sample, whatever the order of the entries. For a later sample it would
// pass everything that it has passed before; in a table in order it need not pass the entries one by one.
int32_t KeyMap::GetPrevSyncSample(int32_t sample) {
    constexpr uint32_t kNear = 8;
    if (syncCount == 0)
        return sample;
    const uint32_t asked = static_cast<uint32_t>(sample);
    const uint32_t passed = nextEntry;
    if (asked < askedSample) {
        if (IsAscending())
            BinarySearch(asked, 0, passed);
        else
            nextEntry = answer = 0;
    }
    askedSample = asked;
    while (nextEntry < syncCount && EntryAt(nextEntry) <= asked) {
        answer = EntryAt(nextEntry++);
        if (nextEntry == passed + kNear && IsAscending())
            BinarySearch(asked, nextEntry, syncCount);
    }
    return static_cast<int32_t>(answer);
}

}  // namespace kivmp4
