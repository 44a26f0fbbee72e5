// What unit handlers promise besides the units that the exports show: payload growth and size bounds.
#include <gtest/gtest.h>

#include <cstring>

#include "codec/AvcUnitHandler.h"
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
    const std::vector<Bytes> nals(16000, Nal(1, 3));  // behind one-byte lengths: 2 bytes become 5
    samples.bytes = Prefixed(1, nals);
    const Bytes record = AvcC(1, {}, {});
    AvcUnitHandler handler(View(record));
    for (const bool moves : {false, true}) {
        unit = {};
        void* behind = moves ? ModuleAlloc(1, 1000) : nullptr;  // takes the room behind the first block
        ASSERT_GT(handler.FormatUnit(unit, samples, 0, static_cast<uint32_t>(samples.bytes.size())), 0);
        EXPECT_TRUE(Bytes(unit.payload, unit.payload + unit.size) == Started(nals));
        ModuleFree(behind);
        ModuleFree(unit.payload);
    }
}

}  // namespace
}  // namespace kivmp4::test
