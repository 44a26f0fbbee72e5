// Where a walk along a table stands before each 64th item, so that random access need not walk from the beginning.
#pragma once

#include <algorithm>
#include <cstdint>

#include "support/ModuleHeap.h"

namespace kivmp4 {

/// Made by the first look-up that would walk far. Short tables need none, and without memory for it there is none: then
/// callers walk. The values ascend from 0.
class SkipIndex {
public:
    static constexpr uint32_t kStep = 64;

    SkipIndex() = default;
    SkipIndex(const SkipIndex&) = delete;
    SkipIndex& operator=(const SkipIndex&) = delete;
    ~SkipIndex() { ModuleFree(values); }

    /// Walks all items once, by its first call.
    /// @param next   the value after an item, from the value before it and the item's number; not below that value
    /// @param limit  a value above it makes an index useless: there is none then
    /// @return whether there is an index
    template <typename Next>
    bool Make(uint32_t items, Next next, uint64_t limit = UINT64_MAX) {
        if (tried || items <= kStep)
            return values != nullptr;
        tried = true;
        blocks = (items - 1) / kStep + 1;
        values = static_cast<uint64_t*>(ModuleAllocRaw(alignof(uint64_t), size_t{blocks} * sizeof(uint64_t)));
        uint64_t value = 0;
        for (uint32_t item = 0; values && item < items; ++item) {
            if (item % kStep == 0)
                values[item / kStep] = value;
            value = next(value, item);
            if (value > limit) {
                ModuleFree(values);
                values = nullptr;
            }
        }
        return values != nullptr;
    }

    /// @return the last block of kStep items that begins with a value not above `wanted`
    uint32_t FindBlock(uint64_t wanted) const {
        return static_cast<uint32_t>(std::upper_bound(values, values + blocks, wanted) - values) - 1;
    }
    /// @return the value before the block's first item
    uint64_t operator[](uint32_t block) const { return values[block]; }

private:
    uint64_t* values = nullptr;  // owned; one for each block
    uint32_t blocks = 0;
    bool tried = false;
};

}  // namespace kivmp4
