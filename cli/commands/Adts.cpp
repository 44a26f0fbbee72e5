// ADTS headers (ISO/IEC 14496-3, 1.A.2): what makes raw AAC units a stream that any decoder plays.
#include "commands/Adts.h"

namespace kivmp4::cli {

namespace {

constexpr uint32_t kSpectralBandReplication = 5;
constexpr uint32_t kParametricStereo = 29;
constexpr uint32_t kLongTermPrediction = 4;  // the highest object type that two header bits hold
constexpr uint32_t kLastRateIndex = 12;
constexpr uint32_t kMostChannels = 7;

// Reads bits from the start on; past the end they are 0 and `Ended` says so.
class Bits {
public:
    Bits(const uint8_t* bytes, size_t count) : data(bytes), size(count) {}

    uint32_t Take(uint32_t count) {
        uint32_t value = 0;
        for (; count > 0; count--, position++) {
            const bool inside = position / 8 < size;
            ended = ended || !inside;
            value = value << 1 | (inside ? static_cast<uint32_t>(data[position / 8]) >> (7 - position % 8) & 1u : 0u);
        }
        return value;
    }
    bool Ended() const { return ended; }

private:
    const uint8_t* data;
    size_t size;
    size_t position = 0;
    bool ended = false;
};

}  // namespace

std::optional<AdtsFormat> AdtsFormat::FromConfig(const uint8_t* config, size_t size, std::string& why) {
    const auto refuse = [&](const char* reason) {
        why = reason;
        return std::nullopt;
    };
    Bits bits(config, size);
    AdtsFormat format;
    uint32_t type = bits.Take(5);
    format.rateIndex = bits.Take(4);
    format.channels = bits.Take(4);
    if (bits.Ended())
        return refuse("its audio configuration is missing");
    if (format.rateIndex > kLastRateIndex)
        return refuse("its sampling frequency has no index");
    if (type == kSpectralBandReplication || type == kParametricStereo) {
        // The header names the core stream; decoders find the extension inside the units.
        if (bits.Take(4) > kLastRateIndex)
            return refuse("its extension's sampling frequency has no index");
        type = bits.Take(5);
    }
    if (type == 0 || type > kLongTermPrediction)
        return refuse("its audio object type has no ADTS profile");
    if (format.channels == 0 || format.channels > kMostChannels)
        return refuse("its channel layout has no channel configuration");
    if (bits.Take(1) != 0)
        return refuse("its frames are shorter than 1024 samples");
    format.profile = type - 1;
    return format;
}

std::optional<AdtsHeader> AdtsFormat::Header(size_t unitSize) const {
    constexpr size_t kLargestFrame = 0x1FFF;
    if (unitSize > kLargestFrame - kAdtsHeaderSize)
        return std::nullopt;
    const auto length = static_cast<uint32_t>(unitSize + kAdtsHeaderSize);
    const auto byte = [](uint32_t value) { return static_cast<uint8_t>(value & 0xFF); };
    return AdtsHeader{
        0xFF,
        0xF1,  // sync word, MPEG-4, layer 0, no checksum
        byte(profile << 6 | rateIndex << 2 | channels >> 2),
        byte(channels << 6 | length >> 11),
        byte(length >> 3),
        byte(length << 5 | 0x1F),  // buffer fullness 0x7FF: variable rate
        0xFC,                      // its rest, and one raw data block
    };
}

}  // namespace kivmp4::cli
