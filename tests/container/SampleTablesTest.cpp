// Sample tables and their lookups, against plain models and worked examples.
#include <gtest/gtest.h>

#include <random>

#include "container/KeyMap.h"
#include "container/SampleMap.h"
#include "container/TimeStamps.h"
#include "support/BoxTree.h"

namespace kivmp4::test {
namespace {

template <typename Table>
struct Loaded {
    template <typename... Arguments>
    explicit Loaded(const Bytes& stbl, Arguments... arguments) : tree(stbl) {
        parsed = table.Parse(arguments..., tree.Root());
    }
    BoxTree tree;
    Table table{};  // goes first: it gives its payloads back to the tree
    bool parsed;
};

TEST(KeyMap, FindsTheSyncSampleAtOrBefore) {
    struct Case {
        const char* name;
        std::vector<uint32_t> stss;
        int32_t sample, expected;
    };
    const Case cases[] = {
        {"on an entry", {1, 31, 61}, 30, 30},
        {"between two", {1, 31, 61}, 45, 30},
        {"before the first", {11, 31}, 4, 0},
        {"unsorted: stops at the first above", {1, 61, 31}, 45, 0},
        {"entry 0 counts as very late", {1, 0, 31}, 45, 0},
        {"empty table: every sample", {}, 45, 45},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Loaded<KeyMap> keys(Mp4Builder::Stbl().SyncSamples(c.stss));
        ASSERT_TRUE(keys.parsed);
        EXPECT_EQ(keys.table.GetPrevSyncSample(c.sample), c.expected);
    }
    Loaded<KeyMap> wrongVersion(Mp4Builder::Stbl().SyncSamples({1, 31}, 1));
    EXPECT_FALSE(wrongVersion.parsed);
    EXPECT_EQ(wrongVersion.table.GetPrevSyncSample(12), 12);
}

TEST(SampleMap, LocatesSamples) {
    struct Case {
        const char* name;
        Bytes stbl;
        std::vector<std::pair<int32_t, uint64_t>> offsets;  // in this order
    };
    const Case cases[] = {
        {"constant size",
         Mp4Builder::Stbl().ConstantSize(100, 50).ChunkMap({{1, 10}}).ChunkOffsets({1000, 5000}),
         {{3, 1300}, {12, 5200}, {20, 0}, {0, 1000}}},
        {"size table",
         Mp4Builder::Stbl().Sizes({10, 20, 30, 40}).ChunkMap({{1, 2}}).ChunkOffsets({100, 200}),
         {{0, 100}, {1, 110}, {2, 200}, {3, 230}, {1, 110}}},
        {"64-bit offsets",
         Mp4Builder::Stbl().Sizes({10, 20}).ChunkMap({{1, 2}}).ChunkOffsets64({0x180000000}),
         {{0, 0x180000000}, {1, 0x18000000A}}},
        {"two runs, restart backward",
         Mp4Builder::Stbl().ConstantSize(1, 9).ChunkMap({{1, 2}, {3, 1}}).ChunkOffsets({100, 200, 300, 400}),
         {{5, 400}, {2, 200}, {4, 300}, {3, 201}}},
        {"no chunk map: a chunk each",
         Mp4Builder::Stbl().ConstantSize(1, 9).ChunkMap({}).ChunkOffsets({100, 200}),
         {{1, 200}, {2, 0}}},
        {"no samples in a chunk", Mp4Builder::Stbl().ConstantSize(7, 9).ChunkMap({{1, 0}}).ChunkOffsets({100}), {{0, 100}, {2, 114}}},
        {"first chunk 0", Mp4Builder::Stbl().ConstantSize(7, 9).ChunkMap({{0, 1}}).ChunkOffsets({100}), {{0, 0}, {1, 100}}},
        {"first chunks descend",
         Mp4Builder::Stbl().ConstantSize(1, 9).ChunkMap({{3, 1}, {1, 1}}).ChunkOffsets({100, 200, 300}),
         {{8, 0}, {0, 300}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Loaded<SampleMap> map(c.stbl);
        EXPECT_TRUE(map.parsed);
        for (const auto& [sample, offset] : c.offsets)
            EXPECT_EQ(map.table.GetSampleOffset(sample), offset) << sample;
        for (const int32_t wild : {-1, INT32_MIN, INT32_MAX, 1000000})
            map.table.GetSampleOffset(wild);
        EXPECT_EQ(map.table.GetSampleSize(-1), 0u);
        EXPECT_EQ(map.table.GetSampleSize(1000000), 0u);
    }
    Loaded<SampleMap> sizes(Mp4Builder::Stbl().Sizes({10, 30, 20}));
    EXPECT_FALSE(sizes.parsed) << "there is no chunk map";
    EXPECT_EQ(sizes.table.MaxSampleSize(), 30u);
    EXPECT_EQ(sizes.table.GetSampleSize(1), 30u);
    EXPECT_EQ(sizes.table.GetSampleOffset(1), 0u);
    Loaded<SampleMap> forged(Mp4Builder::Stbl().Add(Words("stsz", {0, 0xFFFFFFFF, 10, 20})));
    EXPECT_EQ(forged.table.SampleCount(), 2u);
}

TEST(TimeStamps, FindsTheSampleThatCoversATime) {
    Loaded<TimeStamps> stamps(Mp4Builder::Stbl().Times({{3, 3000}, {2, 1500}}), 90000u, int64_t{0});
    const std::pair<int64_t, int32_t> answers[] = {{9000, 3}, {10499, 3}, {0, 0}, {10500, 4}, {12000, 5}, {12001, -1}};
    for (const auto& [time, sample] : answers)
        EXPECT_EQ(stamps.table.GetSampleIndex(time), sample) << time;
}

// Sequential, backward and random access give what a plain sum gives; with gaps of empty entries and empty deltas.
TEST(TimeStamps, AgreesWithAPlainModel) {
    std::mt19937 random(3);
    for (int round = 0; round < 40; ++round) {
        std::vector<Pair> times, offsets;
        std::vector<int64_t> starts, deltas, shifts;
        int64_t now = 0;
        for (int entry = 0; entry < 12; ++entry) {
            times.push_back({random() % 4, random() % 3 * 500});
            for (uint32_t i = 0; i < times.back().first; ++i, now += times.back().second) {
                starts.push_back(now);
                deltas.push_back(times.back().second);
            }
            offsets.push_back({random() % 5, static_cast<uint32_t>(static_cast<int32_t>(random() % 2000) - 1000)});
            shifts.insert(shifts.end(), offsets.back().first, static_cast<int32_t>(offsets.back().second));
        }
        shifts.resize(starts.size());
        const uint32_t timescale = round % 2 ? 24000 : 90000;
        Loaded<TimeStamps> stamps(Mp4Builder::Stbl().Times(times).CompositionOffsets(offsets, 1), timescale, int64_t{77});
        for (int ask = 0; ask < 400 && !starts.empty(); ++ask) {
            const size_t sample = ask < 40 ? static_cast<size_t>(ask) % starts.size() : random() % starts.size();
            const int32_t index = static_cast<int32_t>(sample);
            const int64_t decode = Ticks(starts[sample], timescale) + 77;
            ASSERT_EQ(stamps.table.GetPresentationTime(index), decode + Ticks(shifts[sample], timescale)) << round << ' ' << sample;
            ASSERT_EQ(stamps.table.GetSampleDuration(index), Ticks(deltas[sample], timescale));
            ASSERT_EQ(stamps.table.GetDecodeTime(index), decode);
        }
        EXPECT_EQ(stamps.table.GetDecodeTime(static_cast<int32_t>(starts.size())), 0) << "behind the end, no delay";
    }
}

}  // namespace
}  // namespace kivmp4::test
