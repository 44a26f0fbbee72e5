// Sync-sample lookup.
#include "container/KeyMap.h"

namespace kivmp4 {

bool KeyMap::Parse(Mp4Box& stbl) {
    Mp4Box* box = stbl.FindChild(FourCc("stss"));
    if (!box)
        return true;
    if (!entries.Acquire(box) || entries->size < kTableHeader || entries->U8(0) != 0)
        return false;
    syncCount = TableEntries(*entries, 4);
    return true;
}

// A scan that stops at the first entry above the sample, whatever the order of the entries. For a later sample it would
// pass everything that it has passed before.
int32_t KeyMap::GetPrevSyncSample(int32_t sample) {
    if (syncCount == 0)
        return sample;
    const uint32_t asked = static_cast<uint32_t>(sample);
    if (asked < askedSample)
        nextEntry = answer = 0;
    askedSample = asked;
    while (nextEntry < syncCount && EntryAt(nextEntry) <= asked)
        answer = EntryAt(nextEntry++);
    return static_cast<int32_t>(answer);
}

}  // namespace kivmp4
