// Where a walk along a table stands before each 64th item, so that random access need not walk from the beginning.
#pragma once

#include <algorithm>
#include <cstdint>

#include "support/ModuleHeap.h"

namespace kivmp4 {

/// Made by the first look-up that would walk far. Short tables need none, and without memory for it there is none: then
/// callers walk.
/// @tparam Place  what a walk knows before an item; all zero before the first
template <typename Place>
class SkipIndex {
public:
    static constexpr uint32_t kStep = 64;

    SkipIndex() = default;
    SkipIndex(const SkipIndex&) = delete;
    SkipIndex& operator=(const SkipIndex&) = delete;
    ~SkipIndex() { ModuleFree(places); }

    /// Walks all items once, by its first call.
    /// @param pass  moves a place past the items from one number to before another; false when an index would be useless:
    ///              there is none then
    /// @return whether there is an index
    template <typename Pass>
    bool Make(uint32_t items, Pass pass) {
        if (tried || items <= kStep)
            return places != nullptr;
        tried = true;
        blocks = (items - 1) / kStep + 1;
        places = static_cast<Place*>(ModuleAllocRaw(alignof(Place), size_t{blocks} * sizeof(Place)));
        Place place = {};
        for (uint32_t block = 0; places && block < blocks; ++block) {
            places[block] = place;
            const uint32_t first = block * kStep;
            if (!pass(place, first, std::min(items - first, kStep) + first)) {
                ModuleFree(places);
                places = nullptr;
            }
        }
        return places != nullptr;
    }

    /// @param holds  true of the first place, and of none after one of which it is false
    /// @return the last block of kStep items whose place it holds of
    template <typename Holds>
    uint32_t LastBlock(Holds holds) const {
        return static_cast<uint32_t>(std::partition_point(places, places + blocks, holds) - places) - 1;
    }
    /// @return the place before the block's first item
    const Place& operator[](uint32_t block) const { return places[block]; }

private:
    Place* places = nullptr;  // owned; one for each block
    uint32_t blocks = 0;
    bool tried = false;
};

}  // namespace kivmp4
