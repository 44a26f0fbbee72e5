// Where each sample of a track lies in the file and how large it is.
#pragma once

#include <cstdint>

#include "container/SkipIndex.h"
#include "container/Table.h"

namespace kivmp4 {

/// "stsz", "stsc" and "stco" or "co64" (ISO/IEC 14496-12, 8.7), decoded in place. Look-ups move a cache: one thread at a
/// time. Every index is safe.
class SampleMap {
public:
    /// Loads the three tables below `stbl` and keeps them until destruction.
    /// @return false when one is missing or unreadable; what was found stays usable
    [[nodiscard]] bool Parse(Mp4Box& stbl);

    uint32_t SampleCount() const { return sampleCount; }

    /// @return bytes; 0 for an index that is not below the count
    uint32_t GetSampleSize(int32_t sample) const;

    /// @return the file offset; 0 when the sample's chunk is not in the table
    uint64_t GetSampleOffset(int32_t sample);

private:
    /// A sample's chunk, and the sample's position in it.
    struct Place {
        int64_t chunk;
        int64_t position;
        uint32_t samplesPerChunk;
    };

    bool ParseSizes(Mp4Box& stbl);
    bool FollowsKnown(int32_t sample) const;
    Place FindPlace(int32_t sample);
    void FindChunkEntry(int32_t sample);
    uint32_t EndOfEntry(int32_t entry, uint32_t first) const;
    bool SkipToNear(int32_t sample);
    uint32_t FirstChunk(int32_t entry) const { return chunkMap.Word(static_cast<uint32_t>(entry)); }
    uint32_t SamplesPerChunk(int32_t entry) const { return chunkMap.Word(static_cast<uint32_t>(entry), 1); }
    uint64_t SizeOfRun(int64_t first, int64_t end);
    uint64_t PlainSum(int64_t first, int64_t end) const;

    Table sizes;                // "stsz"
    uint32_t sampleCount = 0;   // within the payload when there is a size for each sample
    uint32_t constantSize = 0;  // 0: the table has a size for each sample
    bool offsets64 = false;
    Table chunkMap;      // "stsc"
    Table chunkOffsets;  // "stco" or "co64"
    // The "stsc" entry of the last look-up and the samples it covers.
    int32_t cacheFirstSample = 0;
    int32_t cacheEndSample = 0;
    int32_t cacheEntry = 0;
    SkipIndex<uint64_t> entryFirstSamples;  // of "stsc"
    // The last sample found: delivery asks for the next one of its chunk, or for the same again.
    int32_t knownSample = -1;
    int64_t knownChunkEnd = 0;
    uint64_t knownOffset = 0;
    SkipIndex<uint64_t> sizeSums;  // bytes of all samples before
};

}  // namespace kivmp4
