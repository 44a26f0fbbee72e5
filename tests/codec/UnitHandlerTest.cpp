// What unit handlers promise besides the units that the exports show: payload growth and size bounds.
#include <gtest/gtest.h>

#include <cstring>

#include "codec/AacUnitHandler.h"
#include "codec/AvcUnitHandler.h"
#include "codec/ConfigPrefixUnitHandler.h"
#include "codec/PassThroughUnitHandler.h"
#include "support/Mp4Builder.h"

namespace kivmp4::test {
namespace {

class Samples : public SampleReader {
public:
    int32_t ReadData(int64_t offset, uint32_t size, void* destination) override {
        if (static_cast<uint64_t>(offset) + size > bytes.size())
            return 3;
        if (size)
            std::memcpy(destination, bytes.data() + offset, size);
        return 0;
    }
    Bytes bytes;
};

class UnitHandlers : public ::testing::Test {
protected:
    UnitHandlers() : heapMemory(1 << 20) { EXPECT_TRUE(CreateModuleHeap(heapMemory.data(), heapMemory.size())); }
    ~UnitHandlers() override { DestroyModuleHeap(); }
    std::vector<uint8_t> heapMemory;
    Samples samples;
    AccessUnit unit = {};
};

ByteView View(const Bytes& bytes) { return {bytes.data(), bytes.size()}; }

TEST_F(UnitHandlers, GrowWithMarginAndSlackAndReuseTheBlock) {
    samples.bytes = Bytes(4000, 0x42);
    PassThroughUnitHandler handler;
    ASSERT_EQ(handler.FormatUnit(unit, samples, 0, 100), 100);
    EXPECT_EQ(unit.capacity, 100 + 2112);
    const uint8_t* block = unit.payload;
    ASSERT_EQ(handler.FormatUnit(unit, samples, 0, 2148), 2148);  // size + 64 fits exactly
    EXPECT_EQ(unit.payload, block);
    EXPECT_EQ(unit.capacity, 2212);
    ASSERT_EQ(handler.FormatUnit(unit, samples, 0, 2149), 2149);
    EXPECT_EQ(unit.capacity, 2149 + 2112);
    EXPECT_EQ(handler.FormatUnit(unit, samples, 3999, 2), 0) << "reading fails";
    EXPECT_EQ(unit.size, 2149);
}

TEST_F(UnitHandlers, FailCleanlyWithoutMemory) {
    samples.bytes = Bytes(1 << 21, 1);
    PassThroughUnitHandler handler;
    ASSERT_EQ(handler.FormatUnit(unit, samples, 0, 50), 50);
    EXPECT_EQ(handler.FormatUnit(unit, samples, 0, 1 << 21), 0);
    EXPECT_EQ(unit.payload, nullptr);
    EXPECT_EQ(unit.capacity, 0);
    EXPECT_EQ(handler.FormatUnit(unit, samples, 0, 50), 50) << "a smaller unit works again";
    const uint8_t* block = unit.payload;
    for (const uint32_t size : {0x7FFFFFF0u, 0x80000000u, 0xFFFFFFFFu})
        EXPECT_EQ(handler.FormatUnit(unit, samples, 0, size), 0);
    EXPECT_EQ(unit.payload, block) << "beyond the limit nothing is touched";
}

TEST_F(UnitHandlers, DropAPayloadThatIsNotTheirs) {
    uint8_t foreign[64] = {};
    samples.bytes = Bytes(100, 7);
    PassThroughUnitHandler handler;
    // A record that was never prepared, and one kept from an earlier heap: an object of the module begins there now.
    for (uint8_t* block : {foreign, static_cast<uint8_t*>(ModuleAlloc(1, 1000))}) {
        unit.payload = block;
        unit.capacity = 1000;
        ASSERT_EQ(handler.FormatUnit(unit, samples, 0, 100), 100);
        EXPECT_NE(unit.payload, block);
        EXPECT_EQ(block[0], 0);
    }
}

TEST_F(UnitHandlers, GrowInTheMiddleOfAnH264UnitAndKeepWhatIsWritten) {
    const std::vector<Bytes> nals(400, Nal(1, 3));  // one-byte NAL units behind one-byte lengths: 2 bytes become 5
    const Bytes record = AvcC(1, {}, {});
    AvcUnitHandler handler(View(record));
    for (int obstacle = 0; obstacle < 2; ++obstacle) {
        unit = {};
        void* behind = nullptr;
        std::vector<Bytes> many;
        for (int copies = 0; copies < 40; ++copies)
            many.insert(many.end(), nals.begin(), nals.end());
        samples.bytes = Prefixed(1, many);
        if (obstacle)  // takes the room behind the first block, so that growing means moving
            behind = ModuleAlloc(1, 1000);
        ASSERT_EQ(handler.FormatUnit(unit, samples, 0, static_cast<uint32_t>(samples.bytes.size())),
                  static_cast<int32_t>(Started(many).size()));
        EXPECT_EQ(Bytes(unit.payload, unit.payload + unit.size), Started(many));
        ModuleFree(behind);
        ModuleFree(unit.payload);
    }
}

TEST_F(UnitHandlers, BoundTheirUnitSizes) {
    const Bytes record = AvcC(2, {Nal(10)}, {Nal(4)}), small = Hex("01 64 00 0a");
    const Bytes visual = Hex("000001b001 000001b509 00000120 0102");
    EXPECT_EQ(AacUnitHandler().GetMaxUnitSize(100), 8192);
    EXPECT_EQ(AacUnitHandler().GetMaxUnitSize(10000), 10000);
    EXPECT_EQ(PassThroughUnitHandler().GetMaxUnitSize(100), 100);
    EXPECT_EQ(AvcUnitHandler(View(record)).GetMaxUnitSize(100), 100 + static_cast<int32_t>(record.size()) + 24);
    EXPECT_EQ(AvcUnitHandler(View(small)).GetMaxUnitSize(100), 100 + 4 + 48);
    EXPECT_EQ(AvcUnitHandler(View(record)).GetMaxUnitSize(INT32_MAX), INT32_MAX);
    EXPECT_EQ(ConfigPrefixUnitHandler(View(visual)).GetMaxUnitSize(100), 106);
}

}  // namespace
}  // namespace kivmp4::test
