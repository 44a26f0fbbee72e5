// Writes H.264 sequence parameter sets field by field (ISO/IEC 14496-10, 7.3.2.1.1 and E.1.1).
#pragma once

#include <optional>

#include "support/Mp4Builder.h"

namespace kivmp4::test {

/// A set with these fields; those not named are as in a plain progressive stream of 176 x 144.
struct Sps {
    uint32_t nalType = 7, profile = 100, level = 10;
    uint32_t chromaFormat = 1;  // this and the next with profiles of 100 and above
    bool scalingMatrix = false;
    uint32_t log2MaxFrameNum = 4, pocType = 2;
    std::vector<uint32_t> pocCycle = {};
    uint32_t refs = 2, width = 11, height = 9;  // in macroblocks
    bool frameMbsOnly = true;
    std::vector<uint32_t> crop = {};
    // Any of these gives the set a VUI part.
    std::optional<uint32_t> aspect = {};
    bool overscan = false, signal = false, colour = false, chromaLocation = false, timing = false, nalHrd = false,
         vclHrd = false;
    std::optional<uint32_t> buffering = {};  // max_dec_frame_buffering

    operator Bytes() const {
        Bits bits;
        bits.U(nalType | 0x60, 8).U(profile, 8).U(0, 8).U(level, 8).Ue(0);
        if (profile >= 100) {
            bits.Ue(chromaFormat).U(0, chromaFormat == 3).Ue(0).Ue(0).U(0, 1).U(scalingMatrix, 1);
            bits.U(0, scalingMatrix ? chromaFormat == 3 ? 12 : 8 : 0);
        }
        bits.Ue(log2MaxFrameNum - 4).Ue(pocType);
        if (pocType == 0)
            bits.Ue(2);
        if (pocType == 1) {
            bits.U(0, 1).Ue(3).Ue(4).Ue(static_cast<uint32_t>(pocCycle.size()));
            for (const uint32_t offset : pocCycle)
                bits.Ue(offset);
        }
        bits.Ue(refs).U(0, 1).Ue(width - 1).Ue(height - 1).U(frameMbsOnly, 1).U(0, !frameMbsOnly).U(1, 1);
        bits.U(!crop.empty(), 1);
        for (const uint32_t edge : crop)
            bits.Ue(edge);
        const bool vui =
            aspect || overscan || signal || colour || chromaLocation || timing || nalHrd || vclHrd || buffering;
        bits.U(vui, 1);
        if (vui)
            WriteVui(bits);
        return bits.U(1, 1).bytes;
    }

private:
    struct Bits {
        Bytes bytes;
        uint32_t used = 8;  // bits of the last byte
        Bits& U(uint64_t value, uint32_t count) {
            while (count-- > 0) {
                if (used == 8)
                    bytes.push_back(0), used = 0;
                bytes.back() |= static_cast<uint8_t>((value >> count & 1) << (7 - used++));
            }
            return *this;
        }
        Bits& Ue(uint64_t value) {
            uint32_t zeros = 0;
            while ((value + 1) >> (zeros + 1))
                zeros++;
            return U(0, zeros).U(value + 1, zeros + 1);
        }
    };
    void WriteVui(Bits& bits) const {
        bits.U(aspect.has_value(), 1);
        if (aspect)
            bits.U(*aspect, 8);
        if (aspect == 255u)
            bits.U(4, 16).U(3, 16);
        bits.U(overscan, 1).U(1, overscan).U(signal, 1);
        if (signal)
            bits.U(5, 3).U(0, 1).U(colour, 1).U(0x010101, colour ? 24 : 0);
        bits.U(chromaLocation, 1);
        if (chromaLocation)
            bits.Ue(2).Ue(3);
        bits.U(timing, 1);
        if (timing)
            bits.U(1001, 32).U(60000, 32).U(1, 1);
        for (const bool hrd : {nalHrd, vclHrd}) {
            bits.U(hrd, 1);
            if (hrd) {
                bits.Ue(1).U(4, 4).U(6, 4).Ue(1000).Ue(2000).U(1, 1).Ue(70000).Ue(9).U(0, 1);
                bits.U(23, 5).U(23, 5).U(23, 5).U(24, 5);
            }
        }
        bits.U(0, nalHrd || vclHrd).U(1, 1).U(buffering.has_value(), 1);
        if (buffering)
            bits.U(1, 1).Ue(0).Ue(0).Ue(10).Ue(10).Ue(1).Ue(*buffering);
    }
};

}  // namespace kivmp4::test
