// Handles: how they come and go, null arguments, and two threads at one.
#include "support/Session.h"

#include <random>
#include <tuple>

namespace kivmp4::test {
namespace {

const Movie kMovie{.tracks = {VideoTrack(), AudioTrack()}};

TEST(Handle, ChecksTheExtension) {
    const std::string dash = "E/ OpenCheck [436]: URI Invalid (DASH Streaming not available)\n";
    const std::string smooth = "E/ OpenCheck [458]: URI Invalid (Smooth Streaming not available)\n";
    const std::string known = "D/ OpenCheck [413]: URI file extension OK\n";
    const std::string other = "D/ OpenCheck [463]: URI file extension OK\n";
    const std::string is3D = "D/ OpenCheck [410]: URI file extension OK [ 3D ]\n";
    const std::tuple<const char*, bool, std::string> cases[] = {
        {"clip.m4v", true, known},    {"song.m4a", true, known},
        {"film.m3d", true, is3D},     {"dir.mov/file", true, known},
        {"%s%n%d.mp4v", true, known}, {"a.mpd.mp4", true, known},
        {"nodot", true, other},       {"", true, other},
        {"a.m", true, other},         {"FILM.MP4", true, other},
        {"stream.mpd4", false, dash}, {"a.mp4.ism/Manifest", false, smooth},
    };
    for (const auto& [path, accepted, line] : cases) {
        SCOPED_TRACE(path);
        LogCapture log;
        Session session(kMovie);
        session.path = path;
        session.logLevel = 4;
        EXPECT_EQ(session.Create(), accepted);
        EXPECT_EQ(log.Text().rfind(line, 0), 0u) << log.Text();  // the reading thread may log after it
        EXPECT_TRUE(accepted || log.Text() == line) << log.Text();
        EXPECT_EQ(session.file.Opens(), accepted ? 1 : 0);
    }
}

// All that a good file and three calls that fail lead to.
TEST(Handle, PrintsWhatTheLevelAdmits) {
    const std::string sync = "W/ ParseMDIA [560]:  No STSS box \n",
                      error = "E/ GetNextUnitData [1158]:  Not an active AU\n";
    const std::string set = "W/ SetAvailableBW [1270]:  Cannot set Bandwidth \n";
    const std::string get = "W/ GetAvailableBW [1294]:  Cannot set Bandwidth\n";
    const std::string info = "\tPic WxH:  176 x 144 \n\tFrame Cropping needed:\t N  \n";
    const std::pair<int32_t, std::string> cases[] = {
        {-1, ""}, {0, ""}, {1, error}, {2, sync + error + set + get}, {3, info}, {4, error + set + get}, {5, ""}};
    for (const auto& [level, expected] : cases) {
        SCOPED_TRACE(level);
        LogCapture log;
        Session session(kMovie);
        session.logLevel = level;
        ASSERT_EQ(session.Open(), 0);
        uint8_t byte = 0;
        EXPECT_EQ(KivMp4GetNextUnitData(session.demux, &byte), -1);
        EXPECT_EQ(KivMp4SetAvailableBW(session.demux, 7), -1);
        EXPECT_EQ(KivMp4GetAvailableBW(session.demux), -1);
        EXPECT_TRUE(level == 3 || level == 4 ? log.Has(expected) : log.Text() == expected) << log.Text();
        EXPECT_EQ(log.Has("D/ Movie [315]:  Num of valid tracks: 2 \n"), level == 4);
        EXPECT_EQ(log.Has(info), level == 3 || level == 4);
        EXPECT_EQ(log.Has("E/") || log.Has("W/"), level == 1 || level == 2 || level == 4);
    }
}

TEST(Handle, RefusesNullArgumentsAndStaleHandles) {
    Session first(kMovie), second(kMovie);
    Bytes heap(1 << 20);
    for (int missing = 0; missing < 10; missing++) {  // an argument or a function
        FileInterface file = *first.file.Interface();
        ClientAllocator memory = *first.memory.Interface();
        void* const functions[] = {&file.open, &file.close, &file.read, &file.getSize, &memory.allocate, &memory.free};
        if (missing > 3)
            std::memset(functions[missing - 4], 0, sizeof(void*));
        void* block = missing == 0 ? nullptr : heap.data();
        EXPECT_EQ(KivMp4Create(missing == 1 ? nullptr : "a.mp4", missing == 2 ? nullptr : &file,
                               missing == 3 ? nullptr : &memory, block, heap.size(), 0, 0),
                  nullptr);
    }
    CodecInfo info = {};
    ASSERT_TRUE(first.Create());
    EXPECT_EQ(KivMp4GetTrackInfo(first.demux, 0, &info), -1);  // not open yet
    EXPECT_EQ(KivMp4EnableTrack(first.demux, -1, 1), -1);
    EXPECT_EQ(KivMp4JumpPTS(first.demux, 0), -1);
    ASSERT_TRUE(first.Start());
    EXPECT_EQ(KivMp4GetTrackInfo(first.demux, 2, &info), -1);
    EXPECT_EQ(KivMp4GetTrackInfo(first.demux, -1, &info), 0);  // stands for track 0
    EXPECT_EQ(first.Open(), -1);                               // once only
    EXPECT_EQ(first.duration, -1);
    EXPECT_EQ(KivMp4Open(first.demux, &first.tracks, nullptr), -1);
    EXPECT_EQ(KivMp4Open(first.demux, nullptr, &first.duration), -1);
    EXPECT_EQ(KivMp4InitUnit(first.demux, nullptr), -1);
    EXPECT_EQ(first.Deliver(2).size(), 2u);  // nothing has moved
    EXPECT_EQ(KivMp4GetNextUnitData(first.demux, nullptr), -1);

    ASSERT_TRUE(second.Start());  // closes the first one
    first.CheckLeftovers();
    EXPECT_EQ(KivMp4Rewind(first.demux), -1);
    EXPECT_EQ(KivMp4Destroy(first.demux), -1);
    first.demux = nullptr;
    EXPECT_EQ(second.Deliver().size(), 7u);
}

Movie LargeMovie() {
    Movie movie{.tracks = {VideoTrack(0), AudioTrack(60)}};
    for (uint32_t i = 0; i < 40; i++)
        movie.tracks[0].samples.push_back(Prefixed(4, {Nal(3000 + 2500 * i, i)}));  // some beyond 64 KiB
    movie.tracks[0].replace["stss"] = Words("stss", {4, 1, 11, 21, 31});
    return movie;
}

// Gone again at random moments of its setup.
TEST(Handle, ComesAndGoes) {
    const Bytes content = Mp4Builder::Build(LargeMovie());
    const char* rounds = std::getenv("KIVMP4_ROUNDS");
    for (uint32_t round = rounds ? static_cast<uint32_t>(std::atoi(rounds)) : 300; round > 0 && !HasFailure();
         round--) {
        SCOPED_TRACE(round);
        Session session(content, size_t{1} << 20);
        session.file.delaySeed = round;
        ASSERT_TRUE(round % 3 ? session.Create() : session.Start());
        if (round % 3 == 0) {
            EXPECT_EQ(session.Deliver(round % 7).size(), round % 7);
        }
    }
}

// One thread moves and delivers while another switches trick mode: every unit comes with its own bytes, each time.
TEST(Handle, KeepsTheBytesWhileTrickModeSwitches) {
    Session session(LargeMovie());
    ASSERT_TRUE(session.Start());
    std::map<std::pair<uint32_t, int64_t>, Bytes> expected;
    for (const Unit& unit : session.Deliver())
        expected[{unit.track, unit.dts}] = unit.bytes;
    ASSERT_EQ(expected.size(), 100u);
    std::atomic<bool> stop = false;
    std::thread switching([&] {
        for (uint32_t round = 0; !stop; round++) {
            KivMp4FlushFileReader(session.demux);
            KivMp4ResumeFileReader(session.demux);
            for (uint32_t pause = round * 2654435761u >> 26; pause > 0; pause--)
                std::this_thread::yield();
        }
    });
    std::mt19937 random(7);
    uint32_t delivered = 0;
    const uint32_t wanted = 60000 / SweepStep();
    while (delivered < wanted && !HasFailure()) {
        const uint32_t choice = random() % 16;
        const auto deliver = choice == 0   ? KivMp4GetNextSyncUnit
                             : choice == 1 ? KivMp4GetPrevSyncUnit
                                           : KivMp4GetNextUnit;
        if (choice == 2) {
            EXPECT_EQ(KivMp4Rewind(session.demux), 0);
        } else if (choice < 8) {
            EXPECT_NE(KivMp4JumpPTS(session.demux, random() % 40 * 3000), -1);
        }
        const int32_t answer = deliver(session.demux, &session.unit);
        EXPECT_GE(answer, 0);
        if (answer != 0)  // nothing is left in this direction
            continue;
        delivered++;
        const AccessUnit& unit = session.unit;
        const Bytes bytes(unit.payload, unit.payload + unit.size);
        EXPECT_TRUE(bytes == (expected[{unit.trackIndex, unit.dts}]))
            << "track " << unit.trackIndex << " at " << unit.dts;
    }
    stop = true;
    switching.join();
}

}  // namespace
}  // namespace kivmp4::test
