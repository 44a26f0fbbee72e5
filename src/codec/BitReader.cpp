// Bit fields and Exp-Golomb codes.
#include "codec/BitReader.h"

#include <algorithm>

#include "support/Log.h"

namespace kivmp4 {
namespace {

// The longest prefix that a value up to `largest` can need, by a rule of its own: 31 at the most.
uint32_t PrefixLimit(uint32_t largest) {
    uint32_t bits = static_cast<uint32_t>(largest > 1);
    while (bits < 31 && (1u << bits) < largest)
        ++bits;
    return bits;
}

}  // namespace

uint32_t BitReader::Collect(uint64_t position, uint32_t bitCount) const {
    uint32_t value = 0;
    for (uint32_t bit = 0; bit < bitCount; ++bit)
        value = value << 1 | BitAt(position + bit);
    return value;
}

bool BitReader::ReadExpGolombCode(uint32_t largest, uint32_t& value) {
    const uint32_t maxBits = PrefixLimit(largest);
    const uint64_t left = Left();
    uint64_t leadingZeros = 0;
    while (leadingZeros < left && !BitAt(cursor + leadingZeros))
        ++leadingZeros;
    // The second test counts the prefix, the 1 bit and as many bits again.
    if (leadingZeros > maxBits || 2 * leadingZeros + 1 > left) {
        LogError(logLevel, "ReadExpGolombCode", 61, "Problem with Prefix bits, maxBits[%d] LeadingZeros[%d] ",
                 static_cast<int>(maxBits), static_cast<int>(leadingZeros));
        return false;
    }
    const uint32_t zeros = static_cast<uint32_t>(leadingZeros);
    value = (1u << zeros) - 1 + Collect(cursor + zeros + 1, zeros);
    cursor += 2 * zeros + 1;
    return true;
}

bool BitReader::ReadBits(uint32_t bitCount, uint32_t& value) {
    if (bitCount >= 8)
        bitCount -= bitCount % 8;  // whole bytes only
    if (bitCount == 0 || bitCount > Left())
        return false;
    value = Collect(cursor, bitCount);
    cursor += bitCount;
    return true;
}

bool BitReader::ReadFlag(uint8_t& flag) {
    if (Left() == 0)
        return false;
    flag = static_cast<uint8_t>(BitAt(cursor++));
    return true;
}

void BitReader::Skip(uint32_t bitCount) { cursor += std::min<uint64_t>(bitCount, Left()); }

}  // namespace kivmp4
