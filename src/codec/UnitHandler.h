// Turns the bytes of one sample, as they lie in the file, into an access unit for a decoder.
#pragma once

#include <cstdint>

#include "KivMp4.h"
#include "codec/SampleReader.h"
#include "support/ByteOrder.h"
#include "support/ModuleHeap.h"

namespace kivmp4 {

/// Base of the family; by itself it formats nothing. A handler serves one track, keeps no reference between calls and
/// is called from one thread at a time. Objects live on the module heap and go by `delete`.
class UnitHandler {
public:
    virtual ~UnitHandler() {}
    static void operator delete(void* object) { ModuleFree(object); }

    /// @return an upper bound of the payload of a sample of n bytes, for callers that size buffers in advance
    virtual int32_t GetMaxUnitSize(int32_t) const { return 0; }

    /// Makes the next FormatUnit send the codec configuration again.
    virtual void Reset() {}

    /// Writes the unit's payload, growing its block when needed; no other field of the record is touched.
    /// @param offset      of the sample in the file
    /// @param sampleSize  bytes
    /// @return bytes in the payload; 0 when reading failed, memory is missing or the sample is malformed (or empty)
    [[nodiscard]] virtual int32_t FormatUnit(AccessUnit&, SampleReader&, int64_t, uint32_t) { return 0; }

protected:
    static constexpr int64_t kMargin = 64;
    static constexpr int64_t kFirstUnitMargin = 68;
    static constexpr int64_t kSlack = 2048;  // so that slowly growing units do not get a new block each

    static int32_t Bound(int64_t size) { return static_cast<int32_t>(size < INT32_MAX ? size : INT32_MAX); }

    /// Makes room for `need` bytes and the margin; the payload's contents are lost when the block is replaced.
    /// @return false when there is no memory: the unit then has no block; also for more than 2^31 - 1 bytes: nothing has
    ///         changed then
    [[nodiscard]] static bool Grow(AccessUnit& unit, int64_t need, int64_t margin);

    /// The same in the middle of a unit: the bytes written so far stay.
    [[nodiscard]] static bool GrowKeeping(AccessUnit& unit, int64_t need, int64_t margin);

    /// Puts the prefix and then the sample, unchanged, into the payload.
    [[nodiscard]] static int32_t FormatCopy(AccessUnit& unit, SampleReader& reader, int64_t offset, uint32_t sampleSize,
                                            ByteView prefix = {});
};

}  // namespace kivmp4
