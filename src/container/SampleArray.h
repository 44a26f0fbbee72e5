// Per-sample values for the searches of a track, and the table columns that they are filled from.
#pragma once

#include <cstdint>
#include <cstring>

#include "container/Table.h"
#include "support/ClientMemory.h"

namespace kivmp4 {

/// One 64-bit value for each sample, in the player's memory, which need not be aligned for such values.
class SampleArray {
public:
    SampleArray() = default;
    SampleArray(const SampleArray&) = delete;
    SampleArray& operator=(const SampleArray&) = delete;
    ~SampleArray() { ClientFree(allocator, block); }

    /// @return false when the player refuses or would have to give 2 GiB or more; the contents are arbitrary
    [[nodiscard]] bool Allocate(const ClientAllocator* memory, size_t alignment, uint64_t samples) {
        allocator = memory;
        block = ClientAlloc(memory, alignment, samples * sizeof(int64_t));
        count = block ? static_cast<uint32_t>(samples) : 0;
        return block != nullptr;
    }

    uint32_t Count() const { return count; }
    /// @return 0 past the end
    int64_t At(uint32_t sample) const {
        int64_t value = 0;
        if (sample < count)
            std::memcpy(&value, static_cast<const uint8_t*>(block) + size_t{sample} * sizeof(value), sizeof(value));
        return value;
    }
    /// @param sample  below Count()
    void Set(uint32_t sample, int64_t value) {
        std::memcpy(static_cast<uint8_t*>(block) + size_t{sample} * sizeof(value), &value, sizeof(value));
    }

private:
    const ClientAllocator* allocator = nullptr;  // borrowed
    void* block = nullptr;                       // owned
    uint32_t count = 0;
};

/// The two columns of "stts" or "ctts" in host order: so many consecutive samples have this value. On the module heap or
/// in the player's memory.
class RunColumns {
public:
    RunColumns() = default;
    RunColumns(const RunColumns&) = delete;
    RunColumns& operator=(const RunColumns&) = delete;
    ~RunColumns() { Free(); }

    [[nodiscard]] bool AllocateCounts(const ClientAllocator* memory, uint32_t entryCount) {
        allocator = memory;
        entries = entryCount;
        return (counts = AllocateWords(memory, entryCount)) != nullptr;
    }
    [[nodiscard]] bool AllocateValues() { return (values = AllocateWords(allocator, entries)) != nullptr; }
    void Free() {
        FreeWords(allocator, counts);
        FreeWords(allocator, values);
        counts = values = nullptr;
    }

    /// Copies the table, for which both columns were allocated. @return the sum of the counts
    uint64_t Copy(const Table& table) {
        uint64_t samples = 0;
        for (uint32_t entry = 0; entry < entries; ++entry) {
            counts[entry] = table.Word(entry);
            values[entry] = table.Word(entry, 1);
            samples += counts[entry];
        }
        return samples;
    }

    bool Exist() const { return values != nullptr; }
    uint32_t Entries() const { return entries; }
    uint32_t CountOf(uint32_t entry) const { return counts[entry]; }
    uint32_t ValueOf(uint32_t entry) const { return values[entry]; }

private:
    const ClientAllocator* allocator = nullptr;  // borrowed
    uint32_t* counts = nullptr;                  // owned, as `values`
    uint32_t* values = nullptr;
    uint32_t entries = 0;
};

}  // namespace kivmp4
