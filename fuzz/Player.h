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
    if (!holds) {
        std::fprintf(stderr, "broken promise: %s\n", promise);
        std::abort();
    }
}

/// An input is a file with a script behind it. The last byte tells how many bytes the script has before it.
struct Input {
    Input(const uint8_t* data, size_t size) : file(data), end(data + size - (size ? 1 : 0)) {
        next = end - (size ? std::min<size_t>(*end, size - 1) : 0);
        fileSize = static_cast<size_t>(next - file);
    }
    /// 0 behind the script's end.
    uint8_t Next() { return next != end ? *next++ : uint8_t{0}; }

    const uint8_t* file;
    const uint8_t* end;
    const uint8_t* next;
    size_t fileSize;
};

/// The player's memory functions, one thread at a time. Blocks are aligned no better than asked.
struct Memory {
    size_t largest = 0;       // larger blocks are refused
    uint32_t refuseFrom = 0;  // number of the call from which all are refused; 0: none
    uint32_t calls = 0, outstanding = 0;
    const ClientAllocator interface = {this, Allocate, Free};

    static void* Allocate(void* context, size_t alignment, size_t size) {
        Memory& memory = *static_cast<Memory*>(context);
        Require(alignment == 1 || alignment == 4 || alignment == 8, "alignments are 1, 4 or 8");
        if (size > memory.largest || (++memory.calls >= memory.refuseFrom && memory.refuseFrom))
            return nullptr;
        ++memory.outstanding;
        uint8_t* block = static_cast<uint8_t*>(std::malloc(alignment + size)) + alignment;
        block[-1] = static_cast<uint8_t>(alignment);
        return block;
    }
    static void Free(void* context, void* pointer) {
        Require(static_cast<Memory*>(context)->outstanding-- > 0, "a block is freed once");
        uint8_t* block = static_cast<uint8_t*>(pointer);
        std::free(block - block[-1]);
    }
};

}  // namespace kivmp4::fuzz
