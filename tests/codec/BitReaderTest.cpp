// Bit fields and Exp-Golomb codes, at every alignment and at the end of the bytes.
#include "codec/BitReader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/LogCapture.h"
#include "support/Mp4Builder.h"

namespace kivmp4::test {
namespace {

constexpr uint32_t kNoLimit = static_cast<uint32_t>(-3);

TEST(BitReader, DecodesExpGolombCodesWithinThePrefixLimit) {
    struct Case {
        const char* name;
        std::string bits;
        uint32_t largest;
        int64_t expected;  // -1: refused
        const char* log;
    };
    const Case cases[] = {
        {"zero", "1", 31, 0, ""},
        {"one", "010", 31, 1, ""},
        {"two", "011", 31, 2, ""},
        {"three", "00100", 31, 3, ""},
        {"six fits the prefix of three", "00111", 3, 6, ""},
        {"seven does not", "0001000", 3, -1, "maxBits[2] LeadingZeros[3] "},
        {"five zeros under 31", "00000111111", 31, 62, ""},
        {"six zeros under 31", "0000001000000", 31, -1, "maxBits[5] LeadingZeros[6] "},
        {"one under a limit of one", "010", 1, -1, "maxBits[0] LeadingZeros[1] "},
        {"eleven zeros under 1280", "00000000000100000000000", 1280, 2047, ""},
        {"no limit", std::string(31, '0') + std::string(32, '1'), kNoLimit, 4294967294, ""},
        {"suffix cut off by the end", "00010", 31, -1, "maxBits[5] LeadingZeros[3] "},
        {"zeros to the end", "000", 31, -1, "maxBits[5] LeadingZeros[3] "},
        {"nothing left", "", 31, -1, "maxBits[5] LeadingZeros[0] "},
    };
    for (const Case& c : cases) {
        for (int skew = 0; skew < 9; ++skew) {
            SCOPED_TRACE(std::string(c.name) + ", " + std::to_string(skew) + " bits before");
            // The code ends the bytes exactly: filler bits go in front.
            const std::string& code = c.bits;
            const int filler = static_cast<int>((8 - (code.size() + static_cast<size_t>(skew)) % 8) % 8) + skew;
            BitPut put;
            put.Bits(0, filler);
            for (const char bit : code)
                put.Bits(bit == '1', 1);
            Bytes bytes = put.Finish();
            bytes.resize((static_cast<size_t>(filler) + code.size()) / 8);
            const std::vector<uint8_t> exact(bytes.begin(), bytes.end());  // no spare capacity to read into

            LogCapture log;
            BitReader reader({exact.data(), exact.size()}, 1);
            reader.Skip(static_cast<uint32_t>(filler));
            uint32_t value = 77;
            const int32_t result = reader.ReadExpGolombCode(value, c.largest);
            EXPECT_EQ(result, c.expected < 0 ? -1 : 0);
            EXPECT_EQ(value, c.expected < 0 ? 77u : static_cast<uint32_t>(c.expected));
            EXPECT_EQ(reader.Position(), static_cast<uint64_t>(filler) + (c.expected < 0 ? 0 : code.size()));
            EXPECT_EQ(log.Text().find(c.log) != std::string::npos, true) << log.Text();
        }
    }
}

TEST(BitReader, ReadsFieldsAtAnyBit) {
    const uint8_t bytes[] = {0x12, 0x34, 0x56, 0x78, 0x9A};
    const uint64_t all = 0x123456789A;
    for (uint32_t count : {1u, 2u, 7u, 8u, 16u, 32u}) {
        for (uint32_t skip = 0; skip + count <= 40; ++skip) {
            BitReader reader({bytes, sizeof(bytes)}, 0);
            reader.Skip(skip);
            uint32_t value = 0;
            ASSERT_TRUE(reader.ReadField(count, value));
            EXPECT_EQ(value, all >> (40 - skip - count) & ((uint64_t{1} << count) - 1)) << count << " at " << skip;
            EXPECT_EQ(reader.Position(), skip + count);
        }
    }
    BitReader reader({bytes, 1}, 0);
    uint32_t value = 5;
    EXPECT_FALSE(reader.ReadField(0, value));
    EXPECT_FALSE(reader.ReadField(16, value));
    EXPECT_EQ(reader.Position(), 0u);
    uint8_t flag = 0;
    reader.Skip(100);
    EXPECT_FALSE(reader.ReadFlag(flag));
    EXPECT_EQ(value, 5u);
}

}  // namespace
}  // namespace kivmp4::test
