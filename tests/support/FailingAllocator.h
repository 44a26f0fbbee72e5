// Plays the player's memory functions: fails on demand, aligns no better than asked, and counts its blocks.
#pragma once

#include "KivMp4.h"
#include "support/FailingCall.h"

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kivmp4::test {

class FailingAllocator {
public:
    FailingCall failing;
    size_t largest = size_t{64} << 20;  // larger blocks are refused

    ClientAllocator* Interface() { return &interface; }
    size_t Outstanding() const { return blocks.size(); }
    const std::vector<std::string>& Violations() const { return violations; }

private:
    void* Allocate(size_t alignment, size_t size) {
        if (alignment != 1 && alignment != 4 && alignment != 8)
            violations.push_back("alignment " + std::to_string(alignment));
        if (size > std::numeric_limits<int32_t>::max())
            violations.push_back("a block of " + std::to_string(size) + " bytes");
        if (failing.Fails() || size > largest)
            return nullptr;
        auto raw = std::make_unique<uint8_t[]>(size + 2 * alignment);
        // Odd multiples of the alignment only: address % (2 * alignment) == alignment.
        uint8_t* block =
            raw.get() + (3 * alignment - reinterpret_cast<uintptr_t>(raw.get()) % (2 * alignment)) % (2 * alignment);
        std::fill_n(block, size, uint8_t{0xC7});
        blocks[block] = std::move(raw);
        return block;
    }

    void Free(void* block) {
        if (blocks.erase(static_cast<uint8_t*>(block)) == 0)
            violations.push_back("free of a foreign block");
    }

    static FailingAllocator* Of(void* context) { return static_cast<FailingAllocator*>(context); }

    ClientAllocator interface = {
        this,
        [](void* c, size_t alignment, size_t size) { return Of(c)->Allocate(alignment, size); },
        [](void* c, void* block) { Of(c)->Free(block); },
    };
    std::map<uint8_t*, std::unique_ptr<uint8_t[]>> blocks;
    std::vector<std::string> violations;
};

}  // namespace kivmp4::test
