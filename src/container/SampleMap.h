// Where each sample of a track lies in the file and how large it is.
#pragma once

#include <cstdint>

#include "container/BoxContent.h"
#include "container/SparseMarks.h"

namespace kivmp4 {

/// "stsz", "stsc" and "stco" or "co64" (ISO/IEC 14496-12, 8.7), decoded in place. Lookups move a cache: one thread at a
/// time. Every index is safe.
class SampleMap {
public:
    ~SampleMap() { ModuleFree(sizeSums); }

    /// Loads the three tables below `stbl` and keeps them until destruction.
    /// @return false when one is missing or unreadable; what was found stays usable
    [[nodiscard]] bool Parse(Mp4Box& stbl);

    uint32_t SampleCount() const { return sampleCount; }

    /// @return bytes; 0 for an index that is not below the count
    uint32_t GetSampleSize(int32_t sample) const;

    /// @return the file offset; 0 when the sample's chunk is not in the table
    uint64_t GetSampleOffset(int32_t sample);

private:
    bool ParseSizes(Mp4Box& stbl);
    void FindChunkEntry(int32_t sample);
    int64_t SamplesOf(int32_t entry) const;
    const uint8_t* ChunkEntry(int32_t entry) const {
        return chunkMap->data + kTableHeader + size_t{12} * static_cast<uint32_t>(entry);
    }
    uint32_t FirstChunk(int32_t entry) const { return ReadBE32(ChunkEntry(entry)); }
    uint32_t SamplesPerChunk(int32_t entry) const { return ReadBE32(ChunkEntry(entry) + 4); }
    uint64_t SizeOfRun(int64_t first, int64_t end);
    uint64_t PlainSum(int64_t first, int64_t end) const;
    bool MakeSizeSums();
    uint64_t ChunkOffset(uint32_t chunk) const;

    BoxContent sizes;       // "stsz"
    uint32_t sampleCount = 0;   // within the payload when there is a size for each sample
    uint32_t constantSize = 0;  // 0: the table has a size for each sample
    uint32_t chunkMapCount = 0;
    uint32_t chunkCount = 0;
    bool offsets64 = false;
    BoxContent chunkMap;      // "stsc"
    BoxContent chunkOffsets;  // "stco" or "co64"
    // The "stsc" entry of the last lookup and the samples it covers.
    int32_t cacheFirstSample = 0;
    int32_t cacheEndSample = 0;
    int32_t cacheEntry = 0;
    SparseMarks chunkMarks;
    // The last sample found: delivery asks for the next one of its chunk, or for the same again.
    int32_t knownSample = -1;
    int64_t knownChunkEnd = 0;
    uint64_t knownOffset = 0;
    uint64_t* sizeSums = nullptr;  // owned; made for the first long run
    bool sizeSumsTried = false;
};

}  // namespace kivmp4
