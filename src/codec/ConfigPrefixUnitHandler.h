// Unit handler for MPEG-4 visual: the first unit starts with the decoder configuration.
#pragma once

#include "codec/UnitHandler.h"

namespace kivmp4 {

class ConfigPrefixUnitHandler : public UnitHandler {
public:
    /// @param config  the stream's DecoderSpecificInfo. Kept is a copy of what begins at its first video object layer
    ///                start code (00 00 01 20 to 2F; ISO/IEC 14496-2, 6.3.1); without one nothing is ever sent
    explicit ConfigPrefixUnitHandler(ByteView config);
    ~ConfigPrefixUnitHandler() override;

    int32_t GetMaxUnitSize(int32_t n) const override { return Bound(int64_t{n} + configSize); }
    void Reset() override { sendConfig = true; }
    int32_t FormatUnit(AccessUnit& unit, SampleReader& reader, int64_t offset, uint32_t sampleSize) override;

private:
    uint8_t* configData = nullptr;  // owned
    int32_t configSize = 0;
    bool sendConfig = false;  // set by Reset alone: a handler that was never reset sends no configuration
};

}  // namespace kivmp4
