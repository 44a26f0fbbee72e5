// The one module heap of the process.
#include "support/ModuleHeap.h"

#include <cstring>

#include "platform/Heap.h"

namespace kivmp4 {
namespace {

constexpr uint32_t kPayloadMark = 0x50415944;

platform::Heap* moduleHeap = nullptr;  // in the player's memory; null between handles

void* AllocateZeroed(size_t size, uint32_t mark) {
    if (size > INT32_MAX)
        return nullptr;
    const size_t rounded = (size + 3) & ~static_cast<size_t>(3);
    void* block = moduleHeap->Allocate(rounded, mark);
    if (block)
        std::memset(block, 0, rounded);
    return block;
}

}  // namespace

bool CreateModuleHeap(void* memory, size_t capacity) {
    moduleHeap = platform::Heap::Create(memory, capacity);
    return moduleHeap != nullptr;
}

int32_t DestroyModuleHeap() {
    moduleHeap->Delete();
    moduleHeap = nullptr;
    return 0;
}

void* ModuleAlloc(uint32_t, size_t size) { return AllocateZeroed(size, 0); }

void* ModuleAllocPayload(size_t size) { return AllocateZeroed(size, kPayloadMark); }

void* ModuleAllocRaw(size_t alignment, size_t size) { return moduleHeap->AllocateAligned(alignment, size); }

bool ModuleExtend(void* block, size_t size, size_t newSize) {
    if (!moduleHeap->Extend(block, newSize))
        return false;
    std::memset(static_cast<uint8_t*>(block) + size, 0, newSize - size);
    return true;
}

bool ModuleOwnsPayload(const void* block, size_t size) { return moduleHeap->Owns(block, size, kPayloadMark); }

void ModuleFree(void* block) {
    if (block && moduleHeap)
        moduleHeap->Free(block);
}

}  // namespace kivmp4
