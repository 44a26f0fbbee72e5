// H.264 sequence parameter sets: what a player must know to set up its decoder (ISO/IEC 14496-10, 7.3.2.1.1 and E.1).
#pragma once

#include <cstdint>

#include "KivMp4.h"
#include "codec/BitReader.h"
#include "support/ByteOrder.h"

namespace kivmp4 {

/// Summary of the first parameter set of a track. All zero until analysed.
struct H264SpsInfo {
    uint8_t spsParsed;  // 1 when the analysis ran to its end; else the other fields are incomplete
    uint8_t profileIdc;
    uint8_t levelIdc;  // possibly raised, see UpgradeLevel
    uint32_t spsId;
    uint32_t maxFrameNum;
    uint32_t picWidthInMbs;
    uint32_t picHeightInMapUnits;  // not doubled for field coding
    uint32_t pocType;
    uint32_t maxNumRefFrames;
    uint8_t frameCroppingFlag;
    uint8_t vuiParametersPresent;
    uint8_t aspectRatioIdc;
    float aspectRatio;  // integer part of the ratio that aspectRatioIdc names
    uint32_t sarWidth;  // as sarHeight: with aspectRatioIdc 255 only
    uint32_t sarHeight;
    uint32_t numReorderFrames;
    uint32_t videoFormat;
    uint32_t maxDecFrameBuffering;  // settled between what the stream says and what its level allows
    uint32_t numUnitsInTick;
    uint32_t timeScale;
};

/// Analyses an AVCDecoderConfigurationRecord (ISO/IEC 14496-15, 5.3.3.1): its first parameter set, wherever the counts
/// and lengths before it point. A failure leaves its message and `spsParsed` 0; what was stored stays.
/// @return 1 when it ran to its end, else 0
int32_t ExtractSPSInformation(ByteView record, H264SpsInfo& sps, int32_t logLevel);

/// The VUI part. It ends without a word where the bytes end, keeping what was stored.
void ReadVUI_Parameters(BitReader& bits, H264SpsInfo& sps, int32_t logLevel);

/// Reads past the HRD part. @return false as soon as a read fails
[[nodiscard]] bool ReadHRD_Parameters(BitReader& bits);

/// Prints the summary as information lines; nothing when it is not complete.
void DisplayH264SPSInfo(const H264SpsInfo& sps, int32_t logLevel);

/// Copies the summary into a player's record; a warning, and nothing written, when it is not complete.
void GetH264_SPSInformation(const H264SpsInfo& sps, CodecInfo& record, int32_t logLevel);

/// Decoded frames that the level's picture buffer holds (Table A-1); 0 for an unknown level or picture size.
uint32_t GetMaxDpbFrames(const H264SpsInfo& sps);

/// Raises the level by one step, so that a decoder reserves more frames.
void UpgradeLevel(H264SpsInfo& sps, int32_t logLevel);

}  // namespace kivmp4
