// Unit handler for streams whose samples are access units already.
#pragma once

#include "codec/UnitHandler.h"

namespace kivmp4 {

class PassThroughUnitHandler : public UnitHandler {
public:
    int32_t GetMaxUnitSize(int32_t n) const override { return n; }
    int32_t FormatUnit(AccessUnit& unit, SampleReader& reader, int64_t offset, uint32_t sampleSize) override {
        return FormatCopy(unit, reader, offset, sampleSize);
    }
};

}  // namespace kivmp4
