// Parameter sets field by field, and the standard's tables by value.
#include "codec/H264Sps.h"

#include <gtest/gtest.h>

#include <tuple>

#include "codec/BitReader.h"
#include "support/Sps.h"

namespace kivmp4::test {
namespace {

H264SpsInfo Analyse(const Sps& fields) {
    const Bytes record = AvcC(4, {fields}, {});
    H264SpsInfo info = {};
    EXPECT_EQ(ExtractSPSInformation({record.data(), record.size()}, info, 0), 1);
    return info;
}

// What comes last is read right only if every part before it was passed by its own length.
TEST(H264Sps, PassesEveryPartOfTheVui) {
    for (uint32_t parts = 0; parts < 1 << 8; parts++) {
        SCOPED_TRACE(parts);
        const auto has = [parts](int part) { return (parts >> part & 1) != 0; };
        Sps fields{.scalingMatrix = has(0), .overscan = has(1), .signal = has(2), .colour = has(3), .buffering = 3};
        fields.chromaLocation = has(4), fields.timing = has(5), fields.nalHrd = has(6), fields.vclHrd = has(7);
        if (has(0))
            fields.aspect = 255;
        const H264SpsInfo info = Analyse(fields);
        EXPECT_EQ(info.maxDecFrameBuffering, 3u);
        EXPECT_EQ(info.numReorderFrames, 1u);
        EXPECT_EQ(info.videoFormat, has(2) ? 5u : 0u);
        EXPECT_EQ(info.numUnitsInTick, has(5) ? 1001u : 0u);
        EXPECT_EQ(info.timeScale, has(5) ? 60000u : 0u);
        EXPECT_EQ(info.sarWidth, has(0) ? 4u : 0u);
        EXPECT_EQ(info.sarHeight, has(0) ? 3u : 0u);
    }
}

TEST(H264Sps, PassesWhatStandsBeforeThePictureSize) {
    for (const uint32_t profile : {66, 77, 88, 100, 110, 122, 244})
        for (const uint32_t chroma : {0, 1, 2, 3})
            for (const uint32_t poc : {0, 1, 2}) {
                Sps sps{
                    .profile = profile, .chromaFormat = chroma, .scalingMatrix = chroma > 1, .pocType = poc, .refs = 1};
                sps.log2MaxFrameNum = 9, sps.pocCycle = {1, 2, 30}, sps.crop = {0, 1, 0, 4};
                sps.width = 120, sps.height = 68, sps.frameMbsOnly = poc != 2;
                const H264SpsInfo info = Analyse(sps);
                EXPECT_EQ(info.picWidthInMbs, 120u) << profile << ' ' << chroma << ' ' << poc;
                EXPECT_EQ(info.picHeightInMapUnits, 68u);
                EXPECT_EQ(info.maxFrameNum, 512u);
                EXPECT_EQ(info.frameCroppingFlag, 1);
            }
}

// Cut anywhere, in copies exactly as long, with each element at every place within a byte.
TEST(H264Sps, EndsWithTheRecord) {
    for (const uint32_t poc : {0, 1}) {
        for (uint32_t shift = 0; shift < 8; shift++) {
            Sps sps{.log2MaxFrameNum = 4 + (1u << shift / 2), .pocType = poc, .pocCycle = {30}, .frameMbsOnly = false};
            sps.profile = shift % 2 ? 66 : 244, sps.crop = {0, 1, 0, 4};
            const size_t mandatory = AvcC(4, {sps}, {}).size() - 1;  // what follows are the VUI part or the next sets
            sps.aspect = 255, sps.signal = sps.colour = sps.chromaLocation = sps.timing = sps.nalHrd = true;
            sps.buffering = 3;
            const Bytes record = AvcC(4, {sps}, {});
            for (size_t size = 0; size < record.size() - 1; size++) {
                const Bytes part(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(size));
                H264SpsInfo info = {};
                const int32_t complete = ExtractSPSInformation({part.data(), part.size()}, info, 0);
                if (size + 1 < mandatory) {
                    EXPECT_EQ(complete, 0) << size;
                } else if (size > mandatory) {
                    EXPECT_EQ(complete, 1) << size;
                }
            }
        }
    }
}

// The sample aspect ratios of Table E-1, fractions cut off.
TEST(H264Sps, KnowsTheAspectRatios) {
    const std::pair<uint32_t, uint32_t> ratios[] = {{1, 1},   {1, 1},    {12, 11}, {10, 11}, {16, 11}, {40, 33},
                                                    {24, 11}, {20, 11},  {32, 11}, {80, 33}, {18, 11}, {15, 11},
                                                    {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1}};
    for (uint32_t idc = 0; idc < std::size(ratios); idc++)
        EXPECT_EQ(Analyse({.aspect = idc}).aspectRatio, static_cast<float>(ratios[idc].first / ratios[idc].second))
            << idc;
}

// MaxDpbMbs of Table A-1, and the steps of the level that are known.
TEST(H264Sps, KnowsTheLevels) {
    const std::tuple<uint8_t, uint32_t, uint8_t> levels[] = {
        {9, 0, 9},       {10, 396, 11},   {11, 900, 12},    {12, 2376, 13},   {13, 2376, 20},  {20, 2376, 21},
        {21, 4752, 22},  {22, 8100, 30},  {30, 8100, 32},   {31, 18000, 32},  {32, 20480, 40}, {40, 32768, 40},
        {41, 32768, 41}, {42, 34816, 42}, {50, 110400, 50}, {51, 184320, 51}, {52, 0, 52}};
    for (const auto& [level, macroblocks, raised] : levels) {
        H264SpsInfo info = {};
        info.levelIdc = level;
        EXPECT_EQ(GetMaxDpbFrames(info), 0u);
        info.picWidthInMbs = 2, info.picHeightInMapUnits = 3;
        EXPECT_EQ(GetMaxDpbFrames(info), macroblocks / 6) << int{level};
        UpgradeLevel(info, 0);
        EXPECT_EQ(info.levelIdc, raised) << int{level};
    }
}

// Four pictures fit level 1 at this size. A level is too low for a stream that says that it needs less.
TEST(H264Sps, RaisesTheLevelForFewerPicturesOnly) {
    const std::tuple<uint32_t, uint32_t, uint8_t> cases[] = {{3, 3, 11}, {4, 4, 10}, {5, 4, 10}};
    for (const auto& [stated, buffered, level] : cases) {
        const H264SpsInfo info = Analyse({.buffering = stated});
        EXPECT_EQ(info.maxDecFrameBuffering, buffered) << stated;
        EXPECT_EQ(info.levelIdc, level) << stated;
    }
}

TEST(BitReader, ReadsACodeUpToTheLastBit) {
    const uint8_t flagAndSeven[] = {0b1'0001'000};
    BitReader bits({flagAndSeven, 1}, 0);
    uint8_t set = 0;
    uint32_t value = 0;
    EXPECT_TRUE(bits.ReadFlag(set));
    EXPECT_TRUE(bits.ReadExpGolombCode(31, value));
    EXPECT_EQ(value, 7u);
    EXPECT_FALSE(bits.ReadFlag(set));
}

}  // namespace
}  // namespace kivmp4::test
