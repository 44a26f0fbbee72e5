// Analysis of the first H.264 sequence parameter set of a configuration record.
#include "codec/H264Sps.h"

#include "support/Log.h"

namespace kivmp4 {
namespace {

constexpr size_t kNalHeader = 8;      // after the 6-byte record header and the first 16-bit length
constexpr uint32_t kFrameLimit = 15;  // one less than the standard's 16: meant

bool HasChromaFields(uint8_t profile) {
    switch (profile) {
        case 100:
        case 110:
        case 122:
        case 244:
        case 44:
        case 83:
        case 86: return true;
        default: return false;
    }
}

// Chroma format, bit depths, scaling lists. Each list is taken as absent: one bit.
bool ReadChromaFields(BitReader& bits, int32_t logLevel) {
    uint32_t chromaFormat = 0, discarded = 0;
    if (!bits.ReadExpGolombCode(3, chromaFormat)) {
        LogError(logLevel, "ExtractSPSInformation", 128, "Problem parsing Chroma format id ");
        return false;
    }
    if (chromaFormat == 3)
        bits.Skip(1);
    if (!bits.ReadExpGolombCode(3, discarded)) {
        LogError(logLevel, "ExtractSPSInformation", 137, "Problem parsing bit depth Luma");
        return false;
    }
    if (!bits.ReadExpGolombCode(3, discarded)) {
        LogError(logLevel, "ExtractSPSInformation", 142, "Problem parsing SPS id chroma");
        return false;
    }
    bits.Skip(1);
    uint8_t scalingMatrix = 0;
    if (bits.ReadFlag(scalingMatrix) && scalingMatrix)
        bits.Skip(chromaFormat == 3 ? 12 : 8);
    return true;
}

bool ReadPictureOrder(BitReader& bits, H264SpsInfo& sps, int32_t logLevel) {
    uint32_t discarded = 0;
    if (!bits.ReadExpGolombCode(2, sps.pocType)) {
        LogError(logLevel, "ExtractSPSInformation", 168, "Problem parsing POC ");
        return false;
    }
    if (sps.pocType == 0 && !bits.ReadExpGolombCode(28, discarded)) {
        LogError(logLevel, "ExtractSPSInformation", 174, "Problem parsing Max PIC count ");
        return false;
    }
    if (sps.pocType != 1)
        return true;
    // The signed elements are read as unsigned codes: they have the same length, and the values do not matter.
    uint32_t cycle = 0;
    bits.Skip(1);
    if (!bits.ReadExpGolombCode(31, discarded)) {
        LogError(logLevel, "ExtractSPSInformation", 184, "Problem parsing Ref Pic ");
        return false;
    }
    if (!bits.ReadExpGolombCode(31, discarded)) {
        LogError(logLevel, "ExtractSPSInformation", 189, "Problem parsing offset top-bottom field ");
        return false;
    }
    if (!bits.ReadExpGolombCode(255, cycle)) {
        LogError(logLevel, "ExtractSPSInformation", 194, "Problem parsing Num of Ref frames ");
        return false;
    }
    for (uint32_t frame = 0; frame < cycle; ++frame)
        if (!bits.ReadExpGolombCode(31, discarded)) {
            LogError(logLevel, "ExtractSPSInformation", 201, "Problem parsing Poc Info ");
            return false;
        }
    return true;
}

bool ReadPictureSize(BitReader& bits, H264SpsInfo& sps, int32_t logLevel) {
    if (!bits.ReadExpGolombCode(16, sps.maxNumRefFrames)) {
        LogError(logLevel, "ExtractSPSInformation", 209, "Problem parsing Max ref frames ");
        return false;
    }
    bits.Skip(1);
    uint32_t lessOne = 0;
    if (!bits.ReadExpGolombCode(1280, lessOne)) {
        LogError(logLevel, "ExtractSPSInformation", 216, "Problem in ReadExpGolombCode ");
        return false;
    }
    sps.picWidthInMbs = lessOne + 1;
    if (!bits.ReadExpGolombCode(1280, lessOne)) {
        LogError(logLevel, "ExtractSPSInformation", 222, "Problem in ReadExpGolombCode ");
        return false;
    }
    sps.picHeightInMapUnits = lessOne + 1;

    uint8_t frameMbsOnly = 0;
    if (bits.ReadFlag(frameMbsOnly) && !frameMbsOnly)
        bits.Skip(1);
    bits.Skip(1);
    bool complete = bits.ReadFlag(sps.frameCroppingFlag);
    uint32_t discarded = 0;
    for (int edge = 0; complete && sps.frameCroppingFlag && edge < 4; ++edge)
        complete = bits.ReadExpGolombCode(1280, discarded);
    if (!complete)
        LogError(logLevel, "ExtractSPSInformation", 243, "Problem parsing Cropping information ");
    return complete;
}

// Decides between the buffering that the stream states (0 when it states none) and what its level allows.
void SettleBuffering(H264SpsInfo& sps, uint32_t calculated, int32_t logLevel) {
    const uint32_t parsed = sps.maxDecFrameBuffering;
    if (parsed == 0) {
        sps.maxDecFrameBuffering = calculated;
        if (calculated < sps.maxNumRefFrames) {
            LogWarning(logLevel, "ExtractSPSInformation", 270,
                       " Possable error in parsing or SPS header. BufferedFrames[%d] < MaxRef[%d] ",
                       static_cast<int>(calculated), static_cast<int>(sps.maxNumRefFrames));
            sps.maxDecFrameBuffering = sps.maxNumRefFrames;
            UpgradeLevel(sps, logLevel);
        }
    } else if (parsed > calculated) {
        LogDebug(logLevel, "ExtractSPSInformation", 277, "Max dec Buffering:  Calculated[%d] ,  Parsed[%d] ",
                 static_cast<int>(calculated), static_cast<int>(parsed));
        sps.maxDecFrameBuffering = calculated;
    } else if (parsed < calculated) {
        LogWarning(logLevel, "ExtractSPSInformation", 282, " decoded MaxBuffering[%d] < Theoretical[%d] ",
                   static_cast<int>(parsed), static_cast<int>(calculated));
        UpgradeLevel(sps, logLevel);
    }
    if (sps.maxDecFrameBuffering == 1)
        UpgradeLevel(sps, logLevel);  // perhaps for the second time: meant
}

// @return false when the VUI part ends here
bool ReadAspectRatio(BitReader& bits, H264SpsInfo& sps, int32_t logLevel) {
    static constexpr float kRatios[] = {1, 1, 1, 0, 1, 1, 2, 1, 2, 2, 1, 1, 1, 1, 1, 1, 2};
    uint32_t idc = 0;
    if (!bits.ReadBits(8, idc))
        return false;
    sps.aspectRatioIdc = static_cast<uint8_t>(idc);
    if (idc == 255)
        return bits.ReadBits(16, sps.sarWidth) && bits.ReadBits(16, sps.sarHeight);
    if (idc > 16) {
        LogError(logLevel, "ReadVUI_Parameters", 372, " Reserved Aspect Ratio found or Wrong parsing ");
        return true;
    }
    if (idc == 0)
        LogDebug(logLevel, "ReadVUI_Parameters", 332, "Unspecifid value of aspect ratio or Wrong parsing ");
    sps.aspectRatio = kRatios[idc];
    return true;
}

bool ReadVideoSignal(BitReader& bits, H264SpsInfo& sps) {
    uint8_t colourDescription = 0;
    if (!bits.ReadBits(3, sps.videoFormat))
        return false;
    bits.Skip(1);
    if (!bits.ReadFlag(colourDescription))
        return false;
    if (colourDescription)
        bits.Skip(24);
    return true;
}

bool ReadHrdIfPresent(BitReader& bits, uint8_t& present, int32_t logLevel) {
    if (!bits.ReadFlag(present))
        return false;
    if (!present || ReadHRD_Parameters(bits))
        return true;
    LogError(logLevel, "ReadVUI_Parameters", 440, " Error in ReadHRD_Parameters() ");
    return false;
}

void ReadBitstreamRestriction(BitReader& bits, H264SpsInfo& sps) {
    uint32_t discarded = 0;
    bits.Skip(1);
    for (int element = 0; element < 4; ++element)
        if (!bits.ReadExpGolombCode(255, discarded))
            return;
    if (bits.ReadExpGolombCode(255, sps.numReorderFrames))
        (void)bits.ReadExpGolombCode(255, sps.maxDecFrameBuffering);  // a failed read keeps what was stored
}

}  // namespace

int32_t ExtractSPSInformation(ByteView record, H264SpsInfo& sps, int32_t logLevel) {
    if (!record.Has(kNalHeader, 1) || (record.U8(kNalHeader) & 0x1F) == 0)
        return 0;
    sps.profileIdc = record.U8(9);
    sps.levelIdc = record.U8(11);
    BitReader bits(record.From(12), logLevel);
    if (!bits.ReadExpGolombCode(31, sps.spsId)) {
        LogError(logLevel, "ExtractSPSInformation", 118, "Problem parsing SPS id ");
        return 0;
    }
    if (HasChromaFields(sps.profileIdc) && !ReadChromaFields(bits, logLevel))
        return 0;
    uint32_t log2MaxFrameNum = 0;
    if (!bits.ReadExpGolombCode(28, log2MaxFrameNum)) {
        LogError(logLevel, "ExtractSPSInformation", 160, "Problem in ReadExpGolombCode ");
        return 0;
    }
    sps.maxFrameNum = log2MaxFrameNum + 4 < 32 ? 1u << (log2MaxFrameNum + 4) : 0;
    if (!ReadPictureOrder(bits, sps, logLevel) || !ReadPictureSize(bits, sps, logLevel))
        return 0;

    uint32_t calculated = GetMaxDpbFrames(sps);
    if (calculated > kFrameLimit)
        calculated = kFrameLimit;
    if (!bits.ReadFlag(sps.vuiParametersPresent))
        return 0;
    if (sps.vuiParametersPresent)
        ReadVUI_Parameters(bits, sps, logLevel);
    else
        LogDebug(logLevel, "ExtractSPSInformation", 259, "ExtractSPSInformation:  VUI parameters not present ");
    SettleBuffering(sps, calculated, logLevel);
    sps.spsParsed = 1;
    return 1;
}

void ReadVUI_Parameters(BitReader& bits, H264SpsInfo& sps, int32_t logLevel) {
    uint8_t flag = 0;
    uint32_t discarded = 0;
    if (!bits.ReadFlag(flag))
        return;
    if (!flag)
        LogWarning(logLevel, "ReadVUI_Parameters", 379, " No Aspect ratio information present ");
    else if (!ReadAspectRatio(bits, sps, logLevel))
        return;
    if (!bits.ReadFlag(flag))  // overscan_info_present_flag
        return;
    if (flag)
        bits.Skip(1);
    if (!bits.ReadFlag(flag) || (flag && !ReadVideoSignal(bits, sps)))
        return;
    if (!bits.ReadFlag(flag))  // chroma_loc_info_present_flag
        return;
    if (flag && (!bits.ReadExpGolombCode(255, discarded) || !bits.ReadExpGolombCode(255, discarded)))
        return;
    if (!bits.ReadFlag(flag))  // timing_info_present_flag
        return;
    if (flag) {
        if (!bits.ReadBits(32, sps.numUnitsInTick) || !bits.ReadBits(32, sps.timeScale))
            return;
        bits.Skip(1);
    }
    uint8_t nalHrd = 0, vclHrd = 0;
    if (!ReadHrdIfPresent(bits, nalHrd, logLevel) || !ReadHrdIfPresent(bits, vclHrd, logLevel))
        return;
    if (nalHrd || vclHrd)
        bits.Skip(1);  // low_delay_hrd_flag
    bits.Skip(1);      // pic_struct_present_flag
    if (bits.ReadFlag(flag) && flag)
        ReadBitstreamRestriction(bits, sps);
}

bool ReadHRD_Parameters(BitReader& bits) {
    constexpr uint32_t kNoLimit = static_cast<uint32_t>(-3);
    uint32_t lessOne = 0, discarded = 0;
    uint8_t flag = 0;
    if (!bits.ReadExpGolombCode(32, lessOne) || !bits.ReadBits(4, discarded) || !bits.ReadBits(4, discarded))
        return false;
    for (uint32_t cpb = 0; cpb <= lessOne; ++cpb)
        if (!bits.ReadExpGolombCode(kNoLimit, discarded) || !bits.ReadExpGolombCode(kNoLimit, discarded) ||
            !bits.ReadFlag(flag))
            return false;
    for (int element = 0; element < 4; ++element)
        if (!bits.ReadBits(5, discarded))
            return false;
    return true;
}

uint32_t GetMaxDpbFrames(const H264SpsInfo& sps) {
    const uint32_t picture = sps.picWidthInMbs * sps.picHeightInMapUnits;
    if (picture == 0)
        return 0;
    switch (sps.levelIdc) {  // MaxDpbMbs
        case 10: return 396 / picture;
        case 11: return 900 / picture;
        case 12:
        case 13:
        case 20: return 2376 / picture;
        case 21: return 4752 / picture;
        case 22:
        case 30: return 8100 / picture;
        case 31: return 18000 / picture;
        case 32: return 20480 / picture;
        case 40:
        case 41: return 32768 / picture;
        case 42: return 34816 / picture;
        case 50: return 110400 / picture;
        case 51: return 184320 / picture;
        default: return 0;
    }
}

void UpgradeLevel(H264SpsInfo& sps, int32_t logLevel) {
    LogDebug(logLevel, "UpgradeLevel", 36, " Changing the LEVEL as the maxDecBuffer is not correct  \n");
    switch (sps.levelIdc) {
        case 10:
        case 11:
        case 12:
        case 20:
        case 21: ++sps.levelIdc; break;
        case 13: sps.levelIdc = 20; break;
        case 22: sps.levelIdc = 30; break;
        case 30:
        case 31: sps.levelIdc = 32; break;  // 30 passes over 31: meant
        case 32: sps.levelIdc = 40; break;
        default: break;
    }
}

void DisplayH264SPSInfo(const H264SpsInfo& sps, int32_t logLevel) {
    constexpr const char* kName = "DisplayH264SPSInfo";
    if (!sps.spsParsed)
        return;
    LogInfo(logLevel, kName, 520, "H264 SPS Information: ");
    LogInfo(logLevel, kName, 521, "\tProfile ID: %d\t ", sps.profileIdc);
    LogInfo(logLevel, kName, 522, "\tLevel ID:\t%d\t ", sps.levelIdc);
    LogInfo(logLevel, kName, 523, "\tSPS Id: \t%d\t ", static_cast<int>(sps.spsId));
    LogInfo(logLevel, kName, 524, "\tPOC value:\t%d\t ", static_cast<int>(sps.pocType));
    LogInfo(logLevel, kName, 525, "\tMax num of Ref Frames:\t %d ", static_cast<int>(sps.maxNumRefFrames));
    LogInfo(logLevel, kName, 526, "\tPic WxH:  %d x %d ", static_cast<int>(sps.picWidthInMbs * 16),
            static_cast<int>(sps.picHeightInMapUnits * 16));
    LogInfo(logLevel, kName, 528, "\tFrame Cropping needed:\t %c  ", sps.frameCroppingFlag == 1 ? 'Y' : 'N');
    LogInfo(logLevel, kName, 529, "\tMax Dec Frame Buffering: %d  ", static_cast<int>(sps.maxDecFrameBuffering));
    if (!sps.vuiParametersPresent)
        return;
    LogInfo(logLevel, kName, 532, "\tAspectRatio \t:\t%f \t ", static_cast<double>(sps.aspectRatio));
    LogInfo(logLevel, kName, 533, "\tSAR Width:\t\t\t%d\t ", static_cast<int>(sps.sarWidth));
    LogInfo(logLevel, kName, 534, "\tSAR Height: \t\t%d\t ", static_cast<int>(sps.sarHeight));
    LogInfo(logLevel, kName, 535, "\tVideo Format:\t\t%d {1: PAL, 2: NTSC, 3: SECAM, 4: MAC, 5: Unknown}\t ",
            static_cast<int>(sps.videoFormat));
    LogInfo(logLevel, kName, 537, "\tNum of Reorder Frames: %d  ", static_cast<int>(sps.numReorderFrames));
}

void GetH264_SPSInformation(const H264SpsInfo& sps, CodecInfo& record, int32_t logLevel) {
    if (!sps.spsParsed) {
        LogWarning(logLevel, "GetH264_SPSInformation", 560, " H264 SPS not parsed  ");
        return;
    }
    record.profile = sps.profileIdc;
    record.level = sps.levelIdc;
    record.refFrames = sps.maxNumRefFrames;
    record.decFrameBuffering = sps.maxDecFrameBuffering;
    if (sps.vuiParametersPresent)
        record.aspectRatio = static_cast<int64_t>(sps.aspectRatio);
}

}  // namespace kivmp4
