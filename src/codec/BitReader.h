// Most-significant-bit-first reader with the Exp-Golomb code ue(v) (ISO/IEC 14496-10, 9.1), bounded by the bytes' end.
#pragma once

#include <cstdint>

#include "support/ByteOrder.h"

namespace kivmp4 {

/// Reads in place. A read that fails leaves cursor and value as they were; one that would cross the end fails. Emulation-prevention bytes
/// are not removed: callers see the bytes as they stand.
class BitReader {
public:
    /// @param view   must outlive the reader
    /// @param level  for the one message of ReadExpGolombCode
    BitReader(ByteView view, int32_t level) : bytes(view), logLevel(level) {}

    /// Reads one ue(v) code. The caller states the largest value it expects; it limits the length of the code's prefix,
    /// not the value. A longer prefix, or a code cut off by the end, is refused with a message.
    [[nodiscard]] bool ReadExpGolombCode(uint32_t largest, uint32_t& value);

    /// Reads a field of 1 to 7, 8, 16 or 32 bits.
    [[nodiscard]] bool ReadBits(uint32_t bitCount, uint32_t& value);
    [[nodiscard]] bool ReadFlag(uint8_t& flag);

    /// Moves on; not past the end, where the next read fails.
    void Skip(uint32_t bitCount);

    /// Bits from the first byte's top bit.
    uint64_t Position() const { return cursor; }

private:
    uint64_t Left() const { return static_cast<uint64_t>(bytes.size) * 8 - cursor; }
    uint32_t BitAt(uint64_t position) const { return bytes.data[position / 8] >> (7 - position % 8) & 1u; }
    uint32_t Collect(uint64_t position, uint32_t bitCount) const;

    ByteView bytes;
    uint64_t cursor = 0;
    int32_t logLevel;
};

}  // namespace kivmp4
