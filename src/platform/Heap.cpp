// Segregated free lists with boundary tags: finding, splitting and joining blocks all take constant time.
#include "platform/Heap.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <new>

#include "platform/Poison.h"

namespace kivmp4::platform {
namespace {

std::atomic<uint32_t> heapsMade{0};

}  // namespace

KIVMP4_NO_ASAN Heap::Header& Heap::At(uint32_t position) const {
    return *reinterpret_cast<Header*>(base + static_cast<size_t>(position) * kUnit);
}

KIVMP4_NO_ASAN Heap::Links& Heap::LinksAt(uint32_t position) const {
    return *reinterpret_cast<Links*>(base + (static_cast<size_t>(position) + 1) * kUnit);
}

void* Heap::PayloadAt(uint32_t position) const { return base + (static_cast<size_t>(position) + 1) * kUnit; }

uint32_t Heap::Tag(uint32_t position, uint32_t units, bool used) const {
    const uint32_t mixed = (secret ^ position * 0x9E3779B1u ^ units * 0x85EBCA77u) * 0xC2B2AE3Du;
    return (mixed & ~1u) | (used ? 1u : 0u);
}

KIVMP4_NO_ASAN Heap* Heap::Create(void* memory, size_t capacity) {
    const uintptr_t address = reinterpret_cast<uintptr_t>(memory);
    const size_t skip = (kUnit - address % kUnit) % kUnit;
    constexpr size_t kControl = (sizeof(Heap) + kUnit - 1) / kUnit * kUnit;
    if (!memory || capacity < skip + kControl + kMinUnits * kUnit)
        return nullptr;

    Allow(memory, capacity);  // an earlier heap over it may never have been deleted
    Heap* heap = new (static_cast<uint8_t*>(memory) + skip) Heap();
    heap->lock.Create("heap");
    const uint32_t number = heapsMade.fetch_add(1, std::memory_order_relaxed) + 1;
    heap->secret = static_cast<uint32_t>(address >> 4) ^ number * 0x27D4EB2Fu;
    const size_t units = std::min<size_t>((capacity - skip - kControl) / kUnit, UINT32_MAX - 2);  // 64 GiB
    heap->base = reinterpret_cast<uint8_t*>(heap) + kControl - kUnit;
    heap->end = static_cast<uint32_t>(units) + 1;
    Forbid(heap->base + kUnit, units * kUnit);
    heap->At(1).previousUnits = 0;
    heap->Insert(1, static_cast<uint32_t>(units));
    return heap;
}

void Heap::Delete() {
    Allow(base + kUnit, (static_cast<size_t>(end) - 1) * kUnit);
    lock.Delete();
}

uint32_t Heap::UnitsFor(size_t size) {
    const uint32_t units = static_cast<uint32_t>((size + kUnit - 1) / kUnit) + 1;
    return units < kMinUnits ? kMinUnits : units;
}

// Sixteen classes to each power of two: below 16 units a class holds one size, above it sizes that differ by 1/16.
Heap::Bin Heap::BinOf(uint32_t units) {
    if (units < kColumns)
        return {0, units};
    const uint32_t log = static_cast<uint32_t>(std::bit_width(units)) - 1;
    return {log - 3, (units >> (log - 4)) & (kColumns - 1)};
}

KIVMP4_NO_ASAN bool Heap::IsFree(uint32_t position) const {
    return position < end && At(position).tag == Tag(position, At(position).units, false);
}

// Makes the stretch a free block; its previousUnits is set already.
KIVMP4_NO_ASAN void Heap::Insert(uint32_t position, uint32_t units) {
    SetUnits(position, units);
    At(position).tag = Tag(position, units, false);
    const Bin bin = BinOf(units);
    uint32_t& head = heads[bin.row][bin.column];
    LinksAt(position) = {head, 0};
    if (head)
        LinksAt(head).previous = position;
    head = position;
    columnMap[bin.row] |= 1u << bin.column;
    rowMap |= 1u << bin.row;
}

KIVMP4_NO_ASAN void Heap::Remove(uint32_t position) {
    const Bin bin = BinOf(At(position).units);
    const Links links = LinksAt(position);
    if (links.next)
        LinksAt(links.next).previous = links.previous;
    if (links.previous) {
        LinksAt(links.previous).next = links.next;
        return;
    }
    heads[bin.row][bin.column] = links.next;
    if (links.next)
        return;
    columnMap[bin.row] &= ~(1u << bin.column);
    if (!columnMap[bin.row])
        rowMap &= ~(1u << bin.row);
}

KIVMP4_NO_ASAN void Heap::SetUnits(uint32_t position, uint32_t units) {
    At(position).units = units;
    if (position + units < end)
        At(position + units).previousUnits = units;
}

KIVMP4_NO_ASAN void Heap::Use(uint32_t position, uint32_t units) {
    SetUnits(position, units);
    At(position).tag = Tag(position, units, true);
}

// Any block of a class above the wanted size's own is large enough; in its own class some are tried.
KIVMP4_NO_ASAN uint32_t Heap::FirstFit(uint32_t units) const {
    const Bin own = BinOf(units);
    uint32_t candidate = heads[own.row][own.column];
    for (int tries = 0; candidate && tries < kBinScan; ++tries) {
        if (At(candidate).units >= units)
            return candidate;
        candidate = LinksAt(candidate).next;
    }
    const uint32_t columns = columnMap[own.row] & ~((2u << own.column) - 1);
    if (columns)
        return heads[own.row][std::countr_zero(columns)];
    const uint32_t rows = rowMap & ~((2u << own.row) - 1);
    if (!rows) {
        for (int tries = 0; candidate && tries < kLastScan; ++tries) {
            if (At(candidate).units >= units)
                return candidate;
            candidate = LinksAt(candidate).next;
        }
        return 0;
    }
    const uint32_t row = static_cast<uint32_t>(std::countr_zero(rows));
    return heads[row][std::countr_zero(columnMap[row])];
}

// @return the position of a used block of at least that size, not cut down; 0 when there is none
KIVMP4_NO_ASAN uint32_t Heap::Take(uint32_t units) {
    const uint32_t position = FirstFit(units);
    if (position) {
        Remove(position);
        Use(position, At(position).units);
    }
    return position;
}

// Gives back what a used block has beyond `units`.
KIVMP4_NO_ASAN void Heap::CutTail(uint32_t position, uint32_t units) {
    const uint32_t rest = At(position).units - units;
    if (rest < kMinUnits)
        return;
    Use(position, units);
    Use(position + units, rest);
    Release(position + units);
}

// Frees a used block and joins it with free neighbours. Headers that vanish lose their tag.
KIVMP4_NO_ASAN void Heap::Release(uint32_t position) {
    uint32_t units = At(position).units;
    const uint32_t next = position + units;
    if (IsFree(next)) {
        Remove(next);
        units += At(next).units;
        At(next).tag = 0;
    }
    const uint32_t before = At(position).previousUnits;
    if (before && IsFree(position - before)) {
        At(position).tag = 0;
        position -= before;
        Remove(position);
        units += before;
    }
    Insert(position, units);
}

void* Heap::Allocate(size_t size, uint32_t mark) { return AllocateAligned(kUnit, size, mark); }

KIVMP4_NO_ASAN void* Heap::AllocateAligned(size_t alignment, size_t size, uint32_t mark) {
    const size_t slack = alignment > kUnit ? alignment + kMinUnits * kUnit : 0;
    if (size > INT32_MAX)
        return nullptr;
    const uint32_t units = UnitsFor(size);
    lock.Lock();
    uint32_t position = Take(units + static_cast<uint32_t>(slack / kUnit));
    if (position && slack) {
        uintptr_t payload = reinterpret_cast<uintptr_t>(PayloadAt(position));
        uint32_t gap = static_cast<uint32_t>((alignment - payload % alignment) % alignment / kUnit);
        if (gap == 1)
            gap += static_cast<uint32_t>(alignment / kUnit);  // one unit alone is no block
        if (gap) {
            const uint32_t front = position;
            const uint32_t whole = At(front).units;
            position += gap;
            Use(front, gap);
            Use(position, whole - gap);
            Release(front);
        }
    }
    if (position) {
        CutTail(position, units);
        At(position).mark = mark;
    }
    lock.Unlock();
    if (!position)
        return nullptr;
    Allow(PayloadAt(position), size);
    return PayloadAt(position);
}

// @return the position of a used block that begins at this address, or 0
KIVMP4_NO_ASAN uint32_t Heap::Find(const void* block) const {
    const uintptr_t address = reinterpret_cast<uintptr_t>(block);
    const uintptr_t first = reinterpret_cast<uintptr_t>(base) + 2 * kUnit;
    if (address < first || (address - first) % kUnit != 0)
        return 0;
    const size_t position = (address - first) / kUnit + 1;
    if (position + 1 >= end)
        return 0;
    const uint32_t found = static_cast<uint32_t>(position);
    const uint32_t units = At(found).units;
    return units <= end - found && At(found).tag == Tag(found, units, true) ? found : 0;
}

KIVMP4_NO_ASAN bool Heap::Owns(const void* block, size_t size, uint32_t mark) const {
    const uint32_t position = Find(block);
    return position && At(position).mark == mark && size <= (static_cast<size_t>(At(position).units) - 1) * kUnit;
}

KIVMP4_NO_ASAN bool Heap::Extend(void* block, size_t size) {
    if (size > INT32_MAX)
        return false;
    const uint32_t units = UnitsFor(size);
    lock.Lock();
    const uint32_t position = Find(block);
    bool fits = position && At(position).units >= units;
    if (position && !fits) {
        const uint32_t own = At(position).units;
        const uint32_t next = position + own;
        if (IsFree(next) && own + At(next).units >= units) {
            Remove(next);
            At(next).tag = 0;
            Use(position, own + At(next).units);
            CutTail(position, units);
            fits = true;
        }
    }
    lock.Unlock();
    if (fits)
        Allow(block, size);
    return fits;
}

KIVMP4_NO_ASAN void Heap::Free(void* block) {
    lock.Lock();
    const uint32_t position = Find(block);
    if (position) {
        Forbid(block, (static_cast<size_t>(At(position).units) - 1) * kUnit);
        Release(position);
    }
    lock.Unlock();
}

}  // namespace kivmp4::platform
