// What the streaming reader's policy costs a player: requests, bytes and virtual time on a slow device, pinned. Bytes come
// right without any policy; a card or a network pays for a bad one.
#include <gtest/gtest.h>

#include "schedule/World.h"

namespace kivmp4::test {
namespace {

// Seeds without changes of order, of which these give the one thread the higher priority, or the other.
constexpr uint32_t kCallerFirst = 4, kReaderFirst = 0;

/// 1 ms a request and 20 MB/s: 4.3 ms for a block. Its player decodes as fast as the device delivers, or at once.
class Slow : public World {
public:
    explicit Slow(int64_t size = kLongFile) {
        readTime = 1000;
        byteTime = 50;
        fileSize = size;
        Open();
    }
    void Decode(int64_t size) { platform::DelayMicroseconds(static_cast<uint32_t>(size / 20)); }
    /// Units of one size, each with its length in front; `busy` decoders take their time.
    void Play(int64_t from, int64_t to, int64_t unit, bool busy) {
        for (; from + unit <= to; from += unit) {
            Expect(from, 4);
            Expect(from + 4, unit - 4);
            if (busy)
                Decode(unit);
        }
    }
};

// Headers, a table, more headers, a table behind them, and then the first unit.
void Opens(Slow& world) {
    for (int64_t header = 0; header < 400; header += 40)
        world.Expect(header, 8);
    world.Expect(400, 100000);
    for (int64_t header = 100400; header < 100800; header += 40)
        world.Expect(header, 8);
    world.Expect(100800, 20000);
    world.Expect(3 * kBlock, 5000);
}

void PlaysAtOnce(Slow& world) { world.Play(0, 12 * kBlock, 3000, false); }
void PlaysInTime(Slow& world) { world.Play(0, 12 * kBlock, 3000, true); }
void PlaysLargeUnitsAtOnce(Slow& world) { world.Play(0, 12 * kBlock, 190000, false); }
void PlaysLargeUnitsInTime(Slow& world) { world.Play(0, 12 * kBlock, 190000, true); }

void Jumps(Slow& world) {
    for (const int64_t block : {9, 2, 13, 5, 11, 7, 1, 14}) {
        world.Expect(block * kBlock + 77, 5000);
        platform::DelayMicroseconds(500);
    }
}

void JumpsToLargeUnits(Slow& world) {
    for (const int64_t block : {9, 2, 13, 5}) {
        world.Play(block * kBlock + 77, block * kBlock + 100077, 100000, false);
        platform::DelayMicroseconds(500);
    }
}

// What a jump left behind is still in the pool, the block after it too.
void JumpsBack(Slow& world) {
    for (int round = 0; round < 4; round++) {
        world.Expect(4 * kBlock, 100);
        world.Expect(5 * kBlock - 50, 100);
        world.Expect(10 * kBlock, 100);
    }
}

// The second read needs the block after the jump's at once.
void JumpsToABlocksEnd(Slow& world) {
    for (const int64_t block : {3, 9, 6}) {
        world.Expect(block * kBlock, 100);
        world.Expect(block * kBlock + kBlock - 50, 100);
    }
}

// A read that lies in the block being filled, a pause in which another could be, and a read that needs that one.
void SkipsIntoTheFill(Slow& world) {
    for (int64_t block = 1; block < 10; block += 2) {
        world.Expect(block * kBlock, 40000);
        world.Expect((block + 1) * kBlock + 60, 60);
        platform::DelayMicroseconds(10000);
        world.Expect((block + 2) * kBlock - 70, 60);
    }
}

void RewindsAtTheEnd(Slow& world) {
    world.Play(0, world.fileSize, 1000, true);
    platform::DelayMicroseconds(20000);
    world.Play(0, kBlock, 1000, false);
}

// From key frame to key frame in trick mode, then on from there.
void Winds(Slow& world) {
    world.Play(0, kBlock, 3000, false);
    world.reader->Flush();
    for (int64_t offset = kBlock; offset < 9 * kBlock; offset += kBlock) {
        world.Expect(offset, 4);
        world.Expect(offset + 4, 20000);
    }
    world.reader->ResumeBuffering();
    world.Play(9 * kBlock, 12 * kBlock, 3000, true);
}

struct Policy {
    const char* name;
    void (*run)(Slow&);
    int64_t fileSize;
    Cost plain, eager;   // in a schedule whose caller goes first where both threads can, and in one whose reader does
    int64_t spread = 0;  // microseconds that any other may take less or more
};

void PrintTo(const Policy& policy, std::ostream* out) { *out << policy.name; }

class Policies : public testing::TestWithParam<Policy> {
protected:
    Cost Measure(uint32_t seed, uint32_t depth) {
        Cost cost = {};
        Scheduler scheduler(seed, depth, kSteps);
        const std::string failure = scheduler.Run([&] {
            Slow world(GetParam().fileSize);
            GetParam().run(world);
            cost = world.Spent();
            world.Close();
        });
        EXPECT_EQ(failure, "") << "seed " << seed;
        return cost;
    }
    static constexpr uint64_t kSteps = 2000;  // about as many as the scenarios have
};

TEST_P(Policies, CostWhatTheyShould) {
    EXPECT_EQ(Measure(kCallerFirst, 1), GetParam().plain);
    EXPECT_EQ(Measure(kReaderFirst, 1), GetParam().eager);
    const uint32_t first = FromEnvironment("KIVMP4_FIRST_SEED", 0);
    const uint32_t count = FromEnvironment("KIVMP4_SCHEDULES", 300);
    for (uint32_t seed = first; seed - first < count; seed++) {
        const Cost cost = Measure(seed, 1 + seed % 4);
        ASSERT_TRUE(cost.LiesBetween(GetParam().plain, GetParam().eager, GetParam().spread))
            << "seed " << seed << ": " << testing::PrintToString(cost) << "; again: KIVMP4_FIRST_SEED=" << seed
            << " KIVMP4_SCHEDULES=1";
    }
}

// Requests, bytes, microseconds.
const Policy kPolicies[] = {
    {"Opens", Opens, kLongFile, {4, 231472, 15571}, {4, 231472, 15571}},
    {"PlaysAtOnce", PlaysAtOnce, kLongFile, {12, 786432, 51312}, {12, 786432, 51312}},
    {"PlaysInTime", PlaysInTime, kLongFile, {12, 786432, 56112}, {12, 786432, 56112}},
    {"PlaysLargeUnitsAtOnce", PlaysLargeUnitsAtOnce, kLongFile, {8, 760000, 45996}, {11, 760000, 48993}},
    {"PlaysLargeUnitsInTime", PlaysLargeUnitsInTime, kLongFile, {13, 891072, 63717}, {13, 904288, 64377}},
    {"Jumps", Jumps, kLongFile, {8, 524288, 38208}, {9, 589824, 42484}},
    {"JumpsToLargeUnits", JumpsToLargeUnits, kLongFile, {8, 400000, 29996}, {9, 465536, 34272}},
    {"JumpsBack", JumpsBack, kLongFile, {3, 196608, 12828}, {4, 262144, 17104}},
    {"JumpsToABlocksEnd", JumpsToABlocksEnd, kLongFile, {6, 393216, 25656}, {7, 458752, 29932}},
    {"SkipsIntoTheFill", SkipsIntoTheFill, kLongFile, {12, 786432, 62828}, {13, 851968, 62828}, 4276},
    {"RewindsAtTheEnd", RewindsAtTheEnd, kFileSize, {8, 459752, 46280}, {8, 459752, 46280}},
    {"Winds", Winds, kLongFile, {20, 422176, 45904}, {21, 487712, 50180}},
};

INSTANTIATE_TEST_SUITE_P(Reader, Policies, testing::ValuesIn(kPolicies),
                         [](const auto& policy) { return policy.param.name; });

}  // namespace
}  // namespace kivmp4::test
