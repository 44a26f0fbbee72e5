// The module heap: every object of the module lives in it, and it dies with the handle.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

namespace kivmp4 {

/// The two words are those given to KivMp4Create. @return false, with no heap, when the memory is too small
[[nodiscard]] bool CreateModuleHeap(void* memory, size_t capacity);

/// Takes everything still allocated with it. Without a heap only ModuleFree may be called. @return 0
int32_t DestroyModuleHeap();

/// @param alignment  accepted for the callers' sake: every block is aligned to 16 bytes
/// @return zeroed bytes, as many as the next multiple of 4; null when the heap is full
[[nodiscard]] void* ModuleAlloc(uint32_t alignment, size_t size);

/// For large buffers that are filled at once: aligned as asked, contents arbitrary.
[[nodiscard]] void* ModuleAllocRaw(size_t alignment, size_t size);

/// Grows a block where it stands; added bytes are zero. @return false when that cannot be: nothing has changed
[[nodiscard]] bool ModuleExtend(void* block, size_t size, size_t newSize);

/// As ModuleAlloc, for payload blocks: players keep pointers to them, beyond the handle's life too.
[[nodiscard]] void* ModuleAllocPayload(size_t size);

/// Whether this is the beginning of a live payload block of at least that size, whatever the pointer is.
[[nodiscard]] bool ModuleOwnsPayload(const void* block, size_t size);

/// Ignores null and what is no block of the present heap, if there is one.
void ModuleFree(void* block);

/// An object on the module heap, its memory zeroed before construction. @return null when the heap is full
template <typename T, typename... Arguments>
[[nodiscard]] T* ModuleNew(Arguments&&... arguments) {
    static_assert(alignof(T) <= 16);
    void* memory = ModuleAlloc(alignof(T), sizeof(T));
    return memory ? ::new (memory) T(std::forward<Arguments>(arguments)...) : nullptr;
}

/// For objects without virtual operations; polymorphic ones are deleted, which gives their memory back here too.
template <typename T>
void ModuleDelete(T* object) {
    if (!object)
        return;
    object->~T();
    ModuleFree(object);
}

}  // namespace kivmp4
