// Payload growth and plain copying, shared by all unit handlers.
#include "codec/UnitHandler.h"

#include <cstring>

namespace kivmp4 {
namespace {

// A record that was never prepared, or that was kept from an earlier handle, has no block of ours. A negative capacity
// is more than any block has.
void DropForeignBlock(AccessUnit& unit) {
    if (ModuleOwnsPayload(unit.payload, static_cast<size_t>(unit.capacity)))
        return;
    unit.payload = nullptr;
    unit.capacity = 0;
}

void SetBlock(AccessUnit& unit, void* block, int64_t capacity) {
    unit.payload = static_cast<uint8_t*>(block);
    unit.capacity = block ? static_cast<int32_t>(capacity) : 0;
}

}  // namespace

bool UnitHandler::Grow(AccessUnit& unit, int64_t need, int64_t margin) {
    const int64_t capacity = need + margin + kSlack;
    if (capacity > INT32_MAX)
        return false;
    DropForeignBlock(unit);
    if (unit.payload && unit.capacity >= need + margin)
        return true;
    ModuleFree(unit.payload);
    SetBlock(unit, ModuleAllocPayload(static_cast<size_t>(capacity)), capacity);
    return unit.payload != nullptr;
}

bool UnitHandler::GrowKeeping(AccessUnit& unit, int64_t need, int64_t margin) {
    const int64_t capacity = need + margin + kSlack;
    if (unit.capacity >= need + margin)
        return true;
    if (capacity > INT32_MAX)
        return false;
    const size_t oldSize = static_cast<size_t>(unit.capacity), newSize = static_cast<size_t>(capacity);
    if (ModuleExtend(unit.payload, oldSize, newSize)) {
        unit.capacity = static_cast<int32_t>(capacity);
        return true;
    }
    void* block = ModuleAllocPayload(newSize);
    if (block)
        std::memcpy(block, unit.payload, static_cast<size_t>(unit.size));
    else
        unit.size = 0;  // without a block there are no bytes
    ModuleFree(unit.payload);
    SetBlock(unit, block, capacity);
    return block != nullptr;
}

int32_t UnitHandler::FormatCopy(AccessUnit& unit, SampleReader& reader, int64_t offset, uint32_t sampleSize,
                                ByteView prefix) {
    const int64_t size = static_cast<int64_t>(prefix.size) + sampleSize;
    if (!Grow(unit, size, kMargin))
        return 0;
    if (prefix.data)
        std::memcpy(unit.payload, prefix.data, prefix.size);
    if (reader.ReadData(offset, sampleSize, unit.payload + prefix.size) != 0)
        return 0;
    unit.size = static_cast<int32_t>(size);
    return unit.size;
}

}  // namespace kivmp4
