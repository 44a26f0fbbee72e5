// A heap over one block of memory that the caller gives.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/LightMutex.h"

namespace kivmp4::platform {

/// Lives at the start of its memory. Blocks are aligned to 16 bytes; the cost of every operation does not depend on how
/// many blocks there are. Safe for any thread. In sanitizer builds all memory that is not handed out is forbidden.
class Heap {
public:
    /// @param memory    any alignment; stays the caller's, who must not touch it until Delete
    /// @return null when the memory cannot even hold the bookkeeping
    static Heap* Create(void* memory, size_t capacity);

    /// @param mark  kept with the block, for Owns
    /// @return null when no free stretch is large enough, or for more than 2^31 - 1 bytes; contents are arbitrary
    void* Allocate(size_t size, uint32_t mark = 0);

    /// @param alignment  a power of two
    void* AllocateAligned(size_t alignment, size_t size, uint32_t mark = 0);

    /// Grows a block where it stands, keeping its contents. @return false when its neighbour is in use: nothing changes
    bool Extend(void* block, size_t size);

    /// Whether `block` is the beginning of a live block of at least that size with that mark, whatever the pointer is.
    /// Takes no lock: for the block's owner.
    bool Owns(const void* block, size_t size, uint32_t mark = 0) const;

    /// Ignores null, pointers that are no block of this heap, and blocks that are free already: pointers that somebody
    /// kept from an earlier heap over the same memory do no harm.
    void Free(void* block);

    /// All blocks are gone with it.
    void Delete();

private:
    // Sizes and positions count units of 16 bytes. Position 0 stands for "none".
    struct Header {
        uint32_t units;          // of the whole block, this header included
        uint32_t previousUnits;  // of the block before; 0 for the first one
        uint32_t tag;            // tells used, free and foreign apart; differs from heap to heap
        uint32_t mark;           // the owner's
    };
    struct Links {
        uint32_t next;
        uint32_t previous;
    };
    struct Bin {
        uint32_t row;
        uint32_t column;
    };
    static constexpr uint32_t kUnit = 16;
    static constexpr uint32_t kMinUnits = 2;
    static constexpr uint32_t kColumns = 16;
    static constexpr uint32_t kRows = 29;
    static constexpr int kBinScan = 64;     // blocks of one class that are tried before larger classes are,
    static constexpr int kLastScan = 4096;  // and when those are empty

    Header& At(uint32_t position) const;
    Links& LinksAt(uint32_t position) const;
    void* PayloadAt(uint32_t position) const;
    uint32_t Tag(uint32_t position, uint32_t units, bool used) const;
    uint32_t Find(const void* block) const;
    bool IsFree(uint32_t position) const;
    static Bin BinOf(uint32_t units);
    static uint32_t UnitsFor(size_t size);

    void Insert(uint32_t position, uint32_t units);
    void Remove(uint32_t position);
    uint32_t FirstFit(uint32_t units) const;
    uint32_t Take(uint32_t units);
    void Use(uint32_t position, uint32_t units);
    void SetUnits(uint32_t position, uint32_t units);
    void CutTail(uint32_t position, uint32_t units);
    void Release(uint32_t position);

    LightMutex lock;                  // guards everything below and all headers
    uint8_t* base;                    // position p stands at base + 16 p
    uint32_t end;                     // one past the last unit
    uint32_t secret;                  // differs from heap to heap
    uint32_t rowMap;                  // bit r: some bin of row r is not empty
    uint32_t columnMap[kRows];        // bit c: bin (r, c) is not empty
    uint32_t heads[kRows][kColumns];  // first free block of each size class
};

}  // namespace kivmp4::platform
