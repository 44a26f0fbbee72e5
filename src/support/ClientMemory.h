// Large blocks from the player's memory functions, checked, and blocks that remember where they came from.
#pragma once

#include <cstdint>

#include "KivMp4.h"

namespace kivmp4 {

/// @return null for more than 2^31 - 1 bytes without asking the player, and when the player refuses
[[nodiscard]] void* ClientAlloc(const ClientAllocator* allocator, size_t alignment, uint64_t size);
/// Null is ignored.
void ClientFree(const ClientAllocator* allocator, void* block);

/// Takes an array of `count` 32-bit values from the module heap, or from the player when that is full. The byte before
/// the array tells which. Contents are arbitrary.
[[nodiscard]] uint32_t* AllocateWords(const ClientAllocator* allocator, uint64_t count);
/// Null is ignored.
void FreeWords(const ClientAllocator* allocator, uint32_t* words);

}  // namespace kivmp4
