// Sample tables and their lookups: worked examples.
#include <gtest/gtest.h>

#include "container/KeyMap.h"
#include "container/SampleMap.h"
#include "container/TimeStamps.h"
#include "support/BoxTree.h"

namespace kivmp4::test {
namespace {

template <typename Table>
struct Loaded {
    template <typename... Arguments>
    explicit Loaded(const std::vector<Bytes>& tables, Arguments... arguments) : tree(Box("stbl", Join(tables))) {
        parsed = table.Parse(arguments..., tree.Root());
    }
    BoxTree tree;
    Table table{};  // goes first: it gives its payloads back to the tree
    bool parsed;
};

TEST(KeyMap, FindsTheSyncSampleAtOrBefore) {
    struct Case {
        const char* name;
        Bytes stss;
        std::vector<std::pair<int32_t, int32_t>> answers;  // in this order
    };
    const Case cases[] = {
        {"before the first", Words("stss", {2, 11, 31}), {{4, 0}, {10, 10}, {4, 0}}},
        {"stops at the first above", Words("stss", {3, 1, 61, 31}), {{45, 0}, {60, 30}, {45, 0}}},
        {"entry 0 counts as very late", Words("stss", {3, 1, 0, 31}), {{45, 0}}},
        {"empty table: every sample", Words("stss", {0}), {{45, 45}}},
        {"unknown version: every sample", Words("stss", {2, 1, 31}, 1), {{12, 12}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Loaded<KeyMap> keys({c.stss});
        EXPECT_EQ(keys.parsed, c.stss[8] == 0);
        for (const auto& [sample, expected] : c.answers)
            EXPECT_EQ(keys.table.GetPrevSyncSample(sample), expected) << sample;
    }
}

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
        {"first chunk 0", {ones, Words("stsc", {1, 0, 1, 1}), hundreds}, {{0, 0}, {1, 100}}},
        {"first chunks descend", {ones, Words("stsc", {2, 3, 1, 1, 1, 1, 1}), hundreds}, {{8, 0}, {0, 300}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Loaded<SampleMap> map(c.tables);
        EXPECT_TRUE(map.parsed);
        for (const auto& [sample, offset] : c.offsets)
            EXPECT_EQ(map.table.GetSampleOffset(sample), offset) << sample;
        for (const int32_t wild : {-1, INT32_MIN, INT32_MAX, 1000000}) {
            map.table.GetSampleOffset(wild);
            EXPECT_EQ(map.table.GetSampleSize(wild), 0u);
        }
    }
    Loaded<SampleMap> cut({Words("stsz", {0, 0xFFFFFFFF, 10, 30, 20})});
    EXPECT_FALSE(cut.parsed) << "there is no chunk map";
    EXPECT_EQ(cut.table.SampleCount(), 3u);
    EXPECT_EQ(cut.table.MaxSampleSize(), 30u);
    EXPECT_EQ(cut.table.GetSampleSize(1), 30u);
}

TEST(TimeStamps, FindsTheSampleThatCoversATime) {
    Loaded<TimeStamps> stamps({Words("stts", {2, 3, 3000, 2, 1500})}, 90000u, int64_t{0});
    const std::pair<int64_t, int32_t> answers[] = {{9000, 3}, {10499, 3}, {0, 0}, {10500, 4}, {12000, 5}, {12001, -1}};
    for (const auto& [time, sample] : answers)
        EXPECT_EQ(stamps.table.GetSampleIndex(time), sample) << time;
}

}  // namespace
}  // namespace kivmp4::test
