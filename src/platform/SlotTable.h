// A fixed table that hands out small positive ids for long-lived system objects.
#pragma once

#include <atomic>
#include <cstdint>

namespace kivmp4::platform {

/// Safe for any thread. An id stays valid until it is released; the caller sees to it that nobody uses it then.
template <typename T, int32_t kSlots>
class SlotTable {
public:
    /// @return an id above 0, or -1 when all slots are taken
    int32_t Acquire() {
        for (int32_t slot = 0; slot < kSlots; ++slot)
            if (!taken[slot].exchange(true, std::memory_order_acquire))
                return slot + 1;
        return -1;
    }

    /// @return null for an id that is not in use
    T* Find(int32_t id) {
        if (id < 1 || id > kSlots || !taken[id - 1].load(std::memory_order_acquire))
            return nullptr;
        return &objects[id - 1];
    }

    void Release(int32_t id) { taken[id - 1].store(false, std::memory_order_release); }

private:
    std::atomic<bool> taken[kSlots] = {};
    T objects[kSlots] = {};
};

}  // namespace kivmp4::platform
