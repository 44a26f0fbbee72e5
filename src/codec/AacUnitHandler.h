// Unit handler for AAC: raw data blocks as they are, without ADTS headers.
#pragma once

#include <algorithm>

#include "codec/UnitHandler.h"

namespace kivmp4 {

class AacUnitHandler : public UnitHandler {
public:
    int32_t GetMaxUnitSize(int32_t n) const override { return std::max(n, 8192); }
    int32_t FormatUnit(AccessUnit& unit, SampleReader& reader, int64_t offset, uint32_t sampleSize) override {
        return FormatCopy(unit, reader, offset, sampleSize);
    }
};

}  // namespace kivmp4
