// A per-sample array of times in the player's memory.
#pragma once

#include <cstdint>
#include <cstring>

#include "support/ClientMemory.h"

namespace kivmp4 {

/// Signed 64-bit values, whatever the alignment of the block that the player gave. Zeroed memory is an empty array.
class TickArray {
public:
    [[nodiscard]] bool Allocate(const ClientAllocator* allocator, size_t alignment, uint32_t values) {
        bytes = static_cast<uint8_t*>(ClientAlloc(allocator, alignment, uint64_t{values} * sizeof(int64_t)));
        count = bytes ? values : 0;
        return bytes != nullptr;
    }

    void Free(const ClientAllocator* allocator) {
        ClientFree(allocator, bytes);
        bytes = nullptr;
        count = 0;
    }

    explicit operator bool() const { return bytes != nullptr; }
    uint32_t Count() const { return count; }

    /// @return 0 beyond the end
    int64_t At(uint32_t index) const {
        int64_t value = 0;
        if (index < count)
            std::memcpy(&value, bytes + size_t{8} * index, sizeof(value));
        return value;
    }

    /// @param index  below Count()
    void Set(uint32_t index, int64_t value) { std::memcpy(bytes + size_t{8} * index, &value, sizeof(value)); }

private:
    uint8_t* bytes = nullptr;  // owned; the owner calls Free
    uint32_t count = 0;
};

}  // namespace kivmp4
