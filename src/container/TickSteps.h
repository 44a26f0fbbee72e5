// Media times in 90 kHz ticks, one after the other.
#pragma once

#include <cstdint>

#include "support/Wrap.h"

namespace kivmp4 {

/// A division takes longer than all else that a sample needs, so quotient and remainder go on from time to time while
/// the times grow by the same step.
class TickSteps {
public:
    static constexpr uint64_t kLongestTime = INT64_MAX / 90000;  // of which the product does not wrap

    /// @return the media time in ticks, cut; 0 for a timescale of 0
    int64_t At(uint64_t mediaTime, uint32_t timescale) {
        const uint64_t product = mediaTime * 90000;
        if (timescale == 0 || mediaTime > kLongestTime)
            return DivideOrZero(static_cast<int64_t>(product), timescale);
        if (product < last || product - last != step) {
            step = product - last;
            ticks = product / timescale;
            rest = product % timescale;
            stepTicks = step / timescale;
            stepRest = step % timescale;
        } else {
            ticks += stepTicks;
            rest += stepRest;
            if (rest >= timescale) {
                rest -= timescale;
                ++ticks;
            }
        }
        last = product;
        return static_cast<int64_t>(ticks);
    }

private:
    // Of the last time: its product, and that divided by the timescale. Then the same of the step that led there.
    uint64_t last = 0, ticks = 0, rest = 0;
    uint64_t step = 0, stepTicks = 0, stepRest = 0;
};

}  // namespace kivmp4
