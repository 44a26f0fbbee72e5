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

int32_t KeyMap::GetPrevSyncSample(int32_t sample) const {
    if (syncCount == 0)
        return sample;
    uint32_t found = 0;
    for (uint32_t entry = 0; entry < syncCount; ++entry) {
        const uint32_t sync = ReadBE32(entries->data + kTableHeader + size_t{4} * entry) - 1;
        if (sync > static_cast<uint32_t>(sample))
            break;
        found = sync;
    }
    return static_cast<int32_t>(found);
}

}  // namespace kivmp4
