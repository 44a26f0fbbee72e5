// Blocks from the player's memory functions, and arrays with an origin marker.
#include "support/ClientMemory.h"

#include "support/ModuleHeap.h"

namespace kivmp4 {
namespace {

constexpr uint8_t kFromModuleHeap = 0xDF;
constexpr uint8_t kFromClient = 0xD0;
// A whole word before the array, of which the marker takes the last byte: the array keeps its alignment.
constexpr uint64_t kMarkerRoom = sizeof(uint32_t);

}  // namespace

void* ClientAlloc(const ClientAllocator* allocator, size_t alignment, uint64_t size) {
    if (size > INT32_MAX)
        return nullptr;
    return allocator->allocate(allocator->context, alignment, static_cast<size_t>(size));
}

void ClientFree(const ClientAllocator* allocator, void* block) {
    if (block)
        allocator->free(allocator->context, block);
}

uint32_t* AllocateWords(const ClientAllocator* allocator, uint64_t count) {
    const uint64_t size = count * sizeof(uint32_t) + kMarkerRoom;
    uint8_t marker = kFromModuleHeap;
    void* block = ModuleAllocRaw(alignof(uint32_t), static_cast<size_t>(size));
    if (!block) {
        marker = kFromClient;
        block = ClientAlloc(allocator, sizeof(uint32_t), size);
    }
    if (!block)
        return nullptr;
    uint8_t* words = static_cast<uint8_t*>(block) + kMarkerRoom;
    words[-1] = marker;
    return reinterpret_cast<uint32_t*>(words);
}

void FreeWords(const ClientAllocator* allocator, uint32_t* words) {
    if (!words)
        return;
    uint8_t* bytes = reinterpret_cast<uint8_t*>(words);
    if (bytes[-1] == kFromModuleHeap)
        ModuleFree(bytes - kMarkerRoom);
    else
        ClientFree(allocator, bytes - kMarkerRoom);
}

}  // namespace kivmp4
