// A heap of equal large blocks over given memory; its bookkeeping stands outside that memory, so that blocks fill it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/Poison.h"

namespace kivmp4::platform {

/// Safe for any thread. Zeroed memory is a pool without blocks. Blocks are as aligned as the memory is.
class BlockPool {
public:
    /// @param memory     must outlive the pool
    /// @param capacity   bytes, fewer than 32 blocks; what is no whole block is not used
    void Create(uint8_t* memory, size_t capacity, size_t blockSize) {
        base = memory;
        size = blockSize;
        freeBlocks.store((1u << capacity / blockSize) - 1, std::memory_order_release);
        Forbid(base, capacity);
    }

    /// Afterwards the memory may be used for something else.
    void Delete(size_t capacity) {
        if (base)
            Allow(base, capacity);
        freeBlocks.store(0, std::memory_order_relaxed);
        base = nullptr;
    }

    bool HasRoom() const { return freeBlocks.load(std::memory_order_acquire) != 0; }

    /// @return the position of a block that was free, or -1
    int32_t Allocate() {
        uint32_t free = freeBlocks.load(std::memory_order_acquire);
        while (free) {
            const int32_t position = __builtin_ctz(free);
            if (freeBlocks.compare_exchange_weak(free, free & (free - 1), std::memory_order_acq_rel)) {
                Allow(At(position), size);
                return position;
            }
        }
        return -1;
    }

    uint8_t* At(int32_t position) const { return base + static_cast<size_t>(position) * size; }

    void Free(int32_t position) {
        Forbid(At(position), size);
        freeBlocks.fetch_or(1u << position, std::memory_order_acq_rel);
    }

private:
    uint8_t* base;
    size_t size;
    std::atomic<uint32_t> freeBlocks;  // one bit a block
};

}  // namespace kivmp4::platform
