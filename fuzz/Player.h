// What the fuzz targets share: the parts of an input, checks that hold in every build, and memory that is scarce.
#pragma once

#include "support/FailingAllocator.h"

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

/// An input is a file with a script after it. The last byte tells how many bytes the script has before it.
struct Input {
    Input(const uint8_t* data, size_t size) : file(data), end(data + size - (size ? 1 : 0)) {
        next = end - (size ? std::min<size_t>(*end, size - 1) : 0);
        fileSize = static_cast<size_t>(next - file);
    }
    /// 0 past the script's end.
    uint8_t Next() { return next != end ? *next++ : uint8_t{0}; }

    const uint8_t* file;
    const uint8_t* end;
    const uint8_t* next;
    size_t fileSize;
};

/// @param refuseFrom  number of the call from which all blocks are refused; 0: none
struct Memory : test::FailingAllocator {
    Memory(size_t most, uint32_t refuseFrom) {
        largest = most;
        failing.first = refuseFrom - 1;
    }
    bool AllIsBack() const { return Outstanding() == 0 && Violations().empty(); }
};

}  // namespace kivmp4::fuzz
