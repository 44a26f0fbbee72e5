// Plays the player's memory functions: fails on demand, aligns no better than asked, and checks its blocks.
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

    ClientAllocator* Interface() { return &interface; }
    size_t Outstanding() const { return blocks.size(); }
    const std::vector<std::string>& Violations() const { return violations; }

private:
    static constexpr size_t kMargin = 32, kLargest = size_t{64} << 20;
    static constexpr uint8_t kCanary = 0xC7;
    struct Block {
        std::unique_ptr<uint8_t[]> raw;
        size_t size;
    };

    void* Allocate(size_t alignment, size_t size) {
        if (alignment != 1 && alignment != 4 && alignment != 8)
            violations.push_back("alignment " + std::to_string(alignment));
        if (failing.Fails() || size > kLargest)
            return nullptr;
        auto raw = std::make_unique<uint8_t[]>(size + 2 * kMargin);
        std::fill_n(raw.get(), size + 2 * kMargin, kCanary);
        // Odd multiples of the alignment only: address % (2 * alignment) == alignment.
        uint8_t* block = raw.get() + 16;
        block += (3 * alignment - reinterpret_cast<uintptr_t>(block) % (2 * alignment)) % (2 * alignment);
        blocks[block] = {std::move(raw), size};
        return block;
    }

    void Free(void* pointer) {
        auto* block = static_cast<uint8_t*>(pointer);
        const auto found = blocks.find(block);
        if (found == blocks.end()) {
            violations.push_back("free of a foreign block");
            return;
        }
        const auto& [raw, size] = found->second;
        const auto intact = [](uint8_t byte) { return byte == kCanary; };
        if (!std::all_of(raw.get(), block, intact) ||
            !std::all_of(block + size, raw.get() + size + 2 * kMargin, intact))
            violations.push_back("write outside a block of " + std::to_string(size));
        blocks.erase(found);
    }

    static FailingAllocator* Of(void* context) { return static_cast<FailingAllocator*>(context); }

    ClientAllocator interface = {
        this,
        [](void* c, size_t alignment, size_t size) { return Of(c)->Allocate(alignment, size); },
        [](void* c, void* block) { Of(c)->Free(block); },
    };
    std::map<uint8_t*, Block> blocks;
    std::vector<std::string> violations;
};

}  // namespace kivmp4::test
