// Unit handler for H.264: length-prefixed NAL units become a byte stream with start codes (ISO/IEC 14496-10 Annex B).
#pragma once

#include "codec/UnitHandler.h"
#include "support/ByteOrder.h"

namespace kivmp4 {

class AvcUnitHandler : public UnitHandler {
public:
    /// @param config  the AVCDecoderConfigurationRecord (ISO/IEC 14496-15, 5.3.3.1), not empty; copied
    explicit AvcUnitHandler(ByteView config);
    ~AvcUnitHandler() override;

    int32_t GetMaxUnitSize(int32_t n) const override;
    void Reset() override { sendParameterSets = true; }

    /// The first unit after construction or Reset starts with the parameter sets. Each sequence parameter set comes after
    /// 00 00 01, each picture parameter set and each NAL unit of the sample after 00 00 00 01.
    int32_t FormatUnit(AccessUnit& unit, SampleReader& reader, int64_t offset, uint32_t sampleSize) override;

private:
    bool ParameterSetsFit() const;
    bool AppendParameterSets(AccessUnit& unit) const;
    bool AppendSample(AccessUnit& unit, SampleReader& reader, int64_t offset, uint32_t sampleSize) const;

    int32_t nalLengthSize = 0;     // 1 to 4; 0: the record is unusable and every unit fails
    uint8_t* avcConfig = nullptr;  // owned
    int32_t avcConfigSize;
    bool sendParameterSets = true;
};

}  // namespace kivmp4
