// Where samples lie, in tables of each form and in forged ones.
#include <gtest/gtest.h>

#include "container/SampleMap.h"
#include "support/BoxTree.h"

namespace kivmp4::test {
namespace {

struct Loaded {
    explicit Loaded(const std::vector<Bytes>& tables) : tree(Box("stbl", Join(tables))), parsed(map.Parse(tree.Root())) {}
    BoxTree tree;
    SampleMap map{};  // goes first: it gives its payloads back to the tree
    bool parsed;
};

TEST(SampleMap, LocatesSamples) {
    const Bytes hundreds = Words("stco", {4, 100, 200, 300, 400}), ones = Words("stsz", {1, 9});
    struct Case {
        const char* name;
        std::vector<Bytes> tables;
        std::vector<std::pair<int32_t, uint64_t>> offsets;  // in this order
    };
    const Case cases[] = {
        {"constant size", {Words("stsz", {100, 50}), Words("stsc", {1, 1, 10, 1}), Words("stco", {2, 1000, 5000})},
         {{3, 1300}, {12, 5200}, {20, 0}, {0, 1000}}},
        {"size table", {Words("stsz", {0, 4, 10, 20, 30, 40}), Words("stsc", {1, 1, 2, 1}), hundreds},
         {{0, 100}, {1, 110}, {2, 200}, {3, 230}, {1, 110}}},
        {"64-bit offsets", {Words("stsz", {0, 2, 10, 20}), Words("stsc", {1, 1, 2, 1}), Words("co64", {1, 1, 0x80000000})},
         {{0, 0x180000000}, {1, 0x18000000A}}},
        {"two runs, restart backward", {ones, Words("stsc", {2, 1, 2, 1, 3, 1, 1}), hundreds},
         {{5, 400}, {2, 200}, {4, 300}, {3, 201}}},
        {"no chunk map: a chunk each", {ones, Words("stsc", {0}), hundreds}, {{1, 200}, {4, 0}}},
        {"no samples in a chunk", {ones, Words("stsc", {1, 1, 0, 1}), hundreds}, {{0, 100}, {2, 102}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Loaded loaded(c.tables);
        EXPECT_TRUE(loaded.parsed);
        for (const auto& [sample, offset] : c.offsets)
            EXPECT_EQ(loaded.map.GetSampleOffset(sample), offset) << sample;
        for (const int32_t wild : {-1, INT32_MIN, INT32_MAX, 1000000}) {
            loaded.map.GetSampleOffset(wild);
            EXPECT_EQ(loaded.map.GetSampleSize(wild), 0u);
        }
    }
    Loaded cut({Words("stsz", {0, 0xFFFFFFFF, 10, 30, 20})});
    EXPECT_FALSE(cut.parsed) << "there is no chunk map";
    EXPECT_EQ(cut.map.SampleCount(), 3u);
    EXPECT_EQ(cut.map.MaxSampleSize(), 30u);
    EXPECT_EQ(cut.map.GetSampleSize(1), 30u);
}

}  // namespace
}  // namespace kivmp4::test
