// What the fuzz targets share: the parts of an input, checks that hold in every build, and the player's memory.
#pragma once

#include "KivMp4.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kivmp4::fuzz {

/// A broken promise ends the process, which the fuzzer and the tests count as a finding.
inline void Require(bool holds, const char* promise) {
    if (holds)
        return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

/// An input is a file with a script behind it. The last byte tells how many bytes the script has before it.
class Input {
public:
    Input(const uint8_t* data, size_t size) : file(data) {
        const size_t script = size ? std::min<size_t>(data[size - 1], size - 1) : 0;
        end = data + (size ? size - 1 : 0);
        next = end - script;
        fileSize = static_cast<size_t>(next - data);
    }
    bool HasMore() const { return next != end; }
    /// 0 behind the script's end.
    uint8_t Next() { return HasMore() ? *next++ : uint8_t{0}; }

    const uint8_t* file;
    size_t fileSize;

private:
    const uint8_t* next;
    const uint8_t* end;
};

/// The player's memory functions, one thread at a time. Blocks are aligned no better than asked.
class Memory {
public:
    size_t largest = 0;       // larger blocks are refused
    uint32_t refuseFrom = 0;  // number of the first call that is refused, from 1; 0: none
    bool refuseRest = false;  // and all behind it
    uint32_t calls = 0;
    uint32_t outstanding = 0;

    const ClientAllocator* Interface() const { return &interface; }

private:
    void* Allocate(size_t alignment, size_t size) {
        Require(alignment == 1 || alignment == 4 || alignment == 8, "alignments are 1, 4 or 8");
        ++calls;
        if (size > largest || calls == refuseFrom || (refuseRest && refuseFrom && calls > refuseFrom))
            return nullptr;
        uint8_t* block = static_cast<uint8_t*>(std::malloc(alignment + size)) + alignment;
        block[-1] = static_cast<uint8_t>(alignment);
        ++outstanding;
        return block;
    }
    void Free(void* pointer) {
        Require(outstanding-- > 0, "a block is freed once");
        uint8_t* block = static_cast<uint8_t*>(pointer);
        std::free(block - block[-1]);
    }
    static Memory* Of(void* context) { return static_cast<Memory*>(context); }

    const ClientAllocator interface = {
        this,
        [](void* c, size_t alignment, size_t size) { return Of(c)->Allocate(alignment, size); },
        [](void* c, void* block) { Of(c)->Free(block); },
    };
};

}  // namespace kivmp4::fuzz
