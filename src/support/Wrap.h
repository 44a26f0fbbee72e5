// Integer arithmetic that wraps by intent, and float conversion without undefined results.
#pragma once

#include <cstdint>

namespace kivmp4 {

inline int32_t WrapAdd32(int32_t a, uint32_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a) + b); }
inline int32_t WrapSubtract32(int32_t a, uint32_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a) - b); }
/// The product in 32 bits, then with its sign.
inline int64_t WrapMultiply32(uint32_t a, uint32_t b) { return static_cast<int32_t>(a * b); }
inline int64_t WrapAdd(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
inline int64_t WrapSubtract(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}
inline int64_t WrapMultiply(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

/// Timescales may be 0. @return the signed, truncated quotient; 0 then
inline int64_t DivideOrZero(int64_t value, uint32_t divisor) { return divisor ? value / int64_t{divisor} : 0; }

/// @return the value cut toward zero; 0 for what 64 bits cannot hold and for NaN
inline int64_t TruncateFloat(float value) {
    constexpr float kLimit = 9223372036854775808.0f;
    return value >= -kLimit && value < kLimit ? static_cast<int64_t>(value) : 0;
}

}  // namespace kivmp4
