// ADTS headers (ISO/IEC 14496-3, 1.A.2): what makes raw AAC units a stream that any decoder plays.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace kivmp4::cli {

constexpr size_t kAdtsHeaderSize = 7;
using AdtsHeader = std::array<uint8_t, kAdtsHeaderSize>;

/// The fields that all headers of one track share.
class AdtsFormat {
public:
    /// Reads an AudioSpecificConfig (ISO/IEC 14496-3, 1.6.2.1).
    /// @param why  receives in words why ADTS cannot carry the stream, when the answer is nothing
    static std::optional<AdtsFormat> FromConfig(const uint8_t* config, size_t size, std::string& why);

    /// @return nothing when the unit is too large for the header's 13-bit length
    std::optional<AdtsHeader> Header(size_t unitSize) const;

private:
    uint32_t profile = 0;    // audio object type minus 1
    uint32_t rateIndex = 0;  // samplingFrequencyIndex
    uint32_t channels = 0;   // channelConfiguration
};

}  // namespace kivmp4::cli
