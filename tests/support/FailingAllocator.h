// Plays the player's memory functions: fails on demand, aligns no better than asked, and checks its blocks.
#pragma once

#include "KivMp4.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace kivmp4::test {

class FailingAllocator {
public:
    static constexpr uint32_t kNever = std::numeric_limits<uint32_t>::max();
    uint32_t failCall = kNever;  // number of the call that fails, from 0
    bool failFrom = false;       // and all behind it
    size_t budget = size_t{64} << 20;

    ClientAllocator* Interface() { return &interface; }
    uint32_t Calls() const { return calls; }
    size_t Outstanding() const { return blocks.size(); }
    const std::vector<std::string>& Violations() const { return violations; }

private:
    static constexpr size_t kMargin = 32;
    static constexpr uint8_t kCanary = 0xC7;
    struct Block {
        uint8_t* raw;
        size_t size;
    };

    void* Allocate(size_t alignment, size_t size) {
        const std::lock_guard<std::mutex> guard(lock);
        const uint32_t call = calls++;
        if (alignment != 1 && alignment != 4 && alignment != 8)
            violations.push_back("alignment " + std::to_string(alignment));
        if (call == failCall || (failFrom && call > failCall) || size > budget - used)
            return nullptr;
        auto* raw = static_cast<uint8_t*>(std::malloc(size + 2 * kMargin));
        std::memset(raw, kCanary, size + 2 * kMargin);
        // Odd multiples of the alignment only: address % (2 * alignment) == alignment.
        uint8_t* block = raw + 16;
        block += (3 * alignment - reinterpret_cast<uintptr_t>(block) % (2 * alignment)) % (2 * alignment);
        blocks[block] = {raw, size};
        used += size;
        std::memset(block, 0x5A, size);
        return block;
    }

    void Free(void* pointer) {
        const std::lock_guard<std::mutex> guard(lock);
        auto* block = static_cast<uint8_t*>(pointer);
        const auto found = blocks.find(block);
        if (found == blocks.end()) {
            violations.push_back("free of a foreign block");
            return;
        }
        const Block entry = found->second;
        for (uint8_t* p = entry.raw; p < entry.raw + entry.size + 2 * kMargin; p++) {
            if ((p < block || p >= block + entry.size) && *p != kCanary)
                violations.push_back("write outside a block of " + std::to_string(entry.size));
            if (p == block && entry.size)
                p = block + entry.size - 1;
        }
        used -= entry.size;
        blocks.erase(found);
        std::free(entry.raw);
    }

    ClientAllocator interface = {
        this,
        [](void* c, size_t alignment, size_t size) { return static_cast<FailingAllocator*>(c)->Allocate(alignment, size); },
        [](void* c, void* block) { static_cast<FailingAllocator*>(c)->Free(block); },
    };
    std::mutex lock;
    std::map<uint8_t*, Block> blocks;
    std::vector<std::string> violations;
    uint32_t calls = 0;
    size_t used = 0;
};

}  // namespace kivmp4::test
