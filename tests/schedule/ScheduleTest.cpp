// The streaming reader under many schedules: bytes, results, one read of the player at a time, no wait without end.
#include <gtest/gtest.h>

#include "schedule/World.h"

namespace kivmp4::test {
namespace {

void OpenAndReadOn() {
    World world;
    world.Open();
    world.ReadThrough(0, kFileSize, 30000);
    world.Close();
}

// Never the same bytes twice on the way forward: a read that the fill under way brings does not jump.
void SkipsForward() {
    World world;
    world.Open();
    for (int64_t offset = 0; offset < kFileSize; offset += 36000)
        world.Expect(offset, 500);
    for (size_t i = 1; i < world.reads.size() && world.reads[i] != 0; i++)
        Require(world.reads[i] >= world.reads[i - 1] + kBlock, "bytes are read twice");
    world.Close();
}

void ReadsAhead() {
    World world;
    world.Open();
    Require(world.ReadsAfterAWhile() == BlockQueue::kBlocks, "the pool is not filled");
    world.Expect(kBlock - 10, 20);
    Require(world.ReadsAfterAWhile() == BlockQueue::kBlocks + 1, "the block that was read is not filled anew");
    world.reader->Flush();
    Require(world.ReadsAfterAWhile() == BlockQueue::kBlocks + 1, "reading ahead in trick mode");
    world.reader->ResumeBuffering();
    Require(world.ReadsAfterAWhile() > BlockQueue::kBlocks + 1, "reading ahead does not come back");
    world.Close();
}

void Jumps() {
    World world;
    world.Open();
    for (const int64_t block : {3, 0, 2, 1, 1, 0}) {
        world.Expect(block * kBlock - (block > 0 ? 9 : 0), 5000);
        world.Expect(block * kBlock + 40000, 30000);
    }
    world.Expect(kFileSize - 500, 500);
    Require(world.Read(kFileSize - 500, 501) == ReadStatus::Failed, "a read past the end");
    world.Close();
}

void TrickModeUnderReads() {
    World world;
    world.Open();
    {
        const Beside switching([&] { world.SwitchTrickMode(4); });
        world.ReadThrough(kBlock - 100, 2 * kBlock, 25000);
        world.Expect(4 * kBlock - 10, 20);
        world.Expect(4 * kBlock, 3000);
        world.ReadThrough(10, kBlock, 60000);
    }
    world.Close();
}

void TrickModeBegins() {
    World world;
    world.Open();
    {
        const Beside switching([&] { world.reader->Flush(); });
        world.ReadThrough(kBlock - 100, 2 * kBlock, 25000);
    }
    const size_t before = world.reads.size();
    world.Expect(0, 10);
    Require(world.reads.size() == before + 1, "a read in trick mode is not the player's");
    world.Close();
}

void TwoReads() {
    World world;
    world.Open();
    {
        const Beside reading([&] { world.ReadThrough(3 * kBlock - 50, 4 * kBlock + 50, 40000); });
        const Beside switching([&] { world.SwitchTrickMode(2); });
        world.ReadThrough(100, kBlock + 20000, 40000);
    }
    world.Close();
}

void LargeReads() {
    World world;
    world.Open();
    {
        const Beside switching([&] { world.SwitchTrickMode(2); });
        for (const int64_t offset : {int64_t{7}, 2 * kBlock, kBlock}) {
            world.Expect(offset, 70000);
            world.Expect(offset + 70000, 300);
        }
    }
    world.Close();
}

void StopsAtOnce() {
    for (uint32_t unknown : {0, 3}) {
        World world;
        world.unknownSizes = unknown;
        world.Open();
        if (Scheduler::Current().Chance(2))
            platform::DelayMicroseconds(world.readTime);
        world.Close();
    }
}

// The thread may be just about to wait for room.
void StopsBesideAFullPool() {
    World world;
    world.Open();
    world.ReadsAfterAWhile();
    world.Expect(0, 40000);
    world.Close();
}

void StopsUnderReads() {
    World world;
    world.answers = 2;
    world.Open();
    {
        const Beside reading([&] { world.Read(kBlock - 20, 60000); });
        const Beside jumping([&] { world.Read(4 * kBlock, 100); });
        platform::DelayMicroseconds(Scheduler::Current().Chance(2) ? 700 : 1);
        world.stopped = true;
        world.reader->Stop();
    }
    Require(world.Read(0, 100) == ReadStatus::NotReady, "a stopped reader reads");
    world.Close();
}

void FillFails() {
    World world;
    world.shortRead = 1;
    world.Open();
    {
        const Beside switching([&] { world.SwitchTrickMode(1); });
        for (int64_t offset = 0; world.Read(offset, 40000) == ReadStatus::Done; offset += 20000)
            Require(offset < 3 * kBlock, "a failed fill is forgotten");
    }
    world.Close();
}

void EmptyHanded() {
    World world;
    world.emptyAnswers = 3;
    world.Open();
    {
        const Beside switching([&] { world.SwitchTrickMode(2); });
        world.ReadThrough(kBlock - 9, kBlock + 9, 9);
        world.Expect(4 * kBlock, 9);
    }
    world.Close();
}

void LateSize() {
    for (const int64_t first : {int64_t{0}, kFileSize / 2}) {
        World world;
        world.unknownSizes = 4;
        world.firstSize = first;
        world.Open();
        while (world.source->GetSize() != kFileSize)
            platform::DelayMicroseconds(90);
        const ReadStatus status = world.Read(kFileSize - 100, 100);  // the thread may keep to the size that it was told
        Require(status == ReadStatus::Done || first > 0, "a late size");
        world.Expect(100, 100);
        world.Close();
    }
}

struct Scenario {
    const char* name;
    void (*run)();
};

void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

class Schedules : public testing::TestWithParam<Scenario> {};

TEST_P(Schedules, AreAllRight) {
    Scheduler measured(0, 1,
                       1);  // so that a seed's changes of order fall into the scenario's length, whichever is first
    ASSERT_EQ(measured.Run(GetParam().run), "");
    const uint32_t first = FromEnvironment("KIVMP4_FIRST_SEED", 0);
    const uint32_t count = FromEnvironment("KIVMP4_SCHEDULES", 1000);
    for (uint32_t seed = first; seed - first < count; seed++) {
        Scheduler scheduler(seed, 1 + seed % 4, measured.Steps());
        const std::string failure = scheduler.Run(GetParam().run);
        ASSERT_EQ(failure, "") << "seed " << seed << "; again: KIVMP4_FIRST_SEED=" << seed << " KIVMP4_SCHEDULES=1";
    }
}

INSTANTIATE_TEST_SUITE_P(Reader, Schedules,
                         testing::Values(Scenario{"OpenAndReadOn", OpenAndReadOn},
                                         Scenario{"SkipsForward", SkipsForward}, Scenario{"ReadsAhead", ReadsAhead},
                                         Scenario{"Jumps", Jumps}, Scenario{"TrickModeUnderReads", TrickModeUnderReads},
                                         Scenario{"TrickModeBegins", TrickModeBegins}, Scenario{"TwoReads", TwoReads},
                                         Scenario{"LargeReads", LargeReads}, Scenario{"StopsAtOnce", StopsAtOnce},
                                         Scenario{"StopsBesideAFullPool", StopsBesideAFullPool},
                                         Scenario{"StopsUnderReads", StopsUnderReads}, Scenario{"FillFails", FillFails},
                                         Scenario{"EmptyHanded", EmptyHanded}, Scenario{"LateSize", LateSize}),
                         [](const auto& scenario) { return scenario.param.name; });

}  // namespace
}  // namespace kivmp4::test
