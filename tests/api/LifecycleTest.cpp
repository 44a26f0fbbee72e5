// Handles that come and go, and the calls that two threads may make at once.
#include "support/Session.h"

namespace kivmp4::test {
namespace {

Movie LargeMovie() {
    Movie movie{.tracks = {VideoTrack(0), AudioTrack(60)}};
    for (uint32_t i = 0; i < 40; i++)
        movie.tracks[0].samples.push_back(Prefixed(4, {Nal(3000 + 2500 * i, i)}));  // some beyond 64 KiB
    movie.tracks[0].sync = {1, 11, 21, 31};
    return movie;
}

TEST(Lifecycle, ComesAndGoes) {
    const Bytes content = Mp4Builder::Build(LargeMovie());
    for (uint32_t round = 1; round <= 300 && !testing::Test::HasFailure(); round++) {
        SCOPED_TRACE(round);
        Session session(content, size_t{1} << 20);
        session.file.delaySeed = round;
        if (round % 3 == 0) {
            ASSERT_TRUE(session.Start());
            EXPECT_EQ(session.Deliver(round % 7).size(), round % 7);
        } else {
            ASSERT_TRUE(session.Create());
        }
    }
}

TEST(Lifecycle, KeepsTheBytesWhileTrickModeSwitches) {
    Session session(Mp4Builder::Build(LargeMovie()));
    ASSERT_TRUE(session.Start());
    const std::vector<Unit> expected = session.Deliver();
    ASSERT_EQ(expected.size(), 100u);
    std::atomic<bool> stop = false;
    std::mutex gate;  // Rewind must not run beside the switch
    std::thread switching([&] {
        for (uint32_t round = 0; !stop; round++) {
            const std::lock_guard<std::mutex> guard(gate);
            round % 2 ? KivMp4ResumeFileReader(session.demux) : KivMp4FlushFileReader(session.demux);
        }
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    do {
        {
            const std::lock_guard<std::mutex> guard(gate);
            KivMp4Rewind(session.demux);
        }
        const std::vector<Unit> units = session.Deliver();
        EXPECT_EQ(session.result, 1);
        EXPECT_EQ(units.size(), expected.size());
        for (size_t i = 0; i < std::min(units.size(), expected.size()); i++)
            EXPECT_TRUE(units[i].bytes == expected[i].bytes) << i;
    } while (std::chrono::steady_clock::now() < end && !testing::Test::HasFailure());
    stop = true;
    switching.join();
}

TEST(Lifecycle, SeeksWhileAnotherThreadReads) {
    const Movie movie = LargeMovie();
    Session session(Mp4Builder::Build(movie));
    ASSERT_TRUE(session.Start());
    std::atomic<int> seeks = 0;
    std::mutex gate;  // Rewind must not run beside a seek
    std::thread seeking([&] {
        for (; seeks < 200; seeks++) {
            const std::lock_guard<std::mutex> guard(gate);
            EXPECT_NE(KivMp4JumpPTS(session.demux, 3000 * (seeks % 40)), -1);
        }
    });
    do {
        for (const Unit& unit : session.Deliver()) {
            if (unit.isVideo) {
                const Bytes& sample = movie.tracks[0].samples.at(static_cast<size_t>(unit.dts / 3000));
                EXPECT_TRUE(std::equal(sample.rbegin(), sample.rend() - 4, unit.bytes.rbegin()));
            }
        }
        const std::lock_guard<std::mutex> guard(gate);
        KivMp4Rewind(session.demux);
    } while (seeks < 200);
    seeking.join();
}

}  // namespace
}  // namespace kivmp4::test
