// Time: eight times the boxes, tracks, samples or entries cost about eight times the work, not sixty-four times.
#include "support/Session.h"

#include <ctime>

namespace kivmp4::test {
namespace {

Movie Boxes(uint32_t n) {
    return {.tracks = {VideoTrack()}, .front = Join(std::vector<Bytes>(n, Hex("00000008 66726565")))};
}

// Keeps the samples away from the file's end, where the reader starts over for each read.
const Bytes kBehind = Box("free", Bytes(256 << 10));

Movie OneChunk(uint32_t n) {
    Track track = AudioTrack(0);
    track.samples.assign(n, Bytes(1));
    track.samplesPerChunk = n;
    return {.tracks = {track}, .back = kBehind};
}

Movie Nals(uint32_t n) {
    Track track{.entry = VideoEntry("avc1", Box("avcC", AvcC(1, {}, {}))),
                .samples = {Prefixed(1, std::vector<Bytes>(n, {9}))}};
    return {.tracks = {track}, .back = kBehind};
}

// The table's first entry, then n others, then the last one.
Movie LongTable(const char* type, const Numbers& first, const Numbers& entry, const Numbers& last, uint32_t n) {
    Put words;
    words.U32(n + 2).Each(first, 4);
    for (uint32_t i = 0; i < n; i++)
        words.Each(entry, 4);
    Movie movie{.tracks = {VideoTrack(30), AudioTrack(30)}};
    movie.tracks[0].replace = {{"stss", Words("stss", {3, 1, 11, 21})}, {type, FullBox(type, words.Each(last, 4))}};
    return movie;
}

// Sound whose sample numbers wrap in both tables, so that a search meets the beginning and the end of one in turns.
Movie WrappingNumbers(uint32_t n) {
    Movie movie{.tracks = {VideoTrack(30), AudioTrack(30)}};
    Put times, offsets;
    times.U32(n), offsets.U32(n + 1);
    for (uint32_t i = 0; i < n; i++)
        times.U32(i % 2 ? 0 - n : n).U32(0), offsets.U32(1).U32(0);
    offsets.U32(0xFFFFFFFF).U32(0);
    movie.tracks[0].replace = {{"stss", Words("stss", {3, 1, 4, 8})}};
    movie.tracks[1].replace = {{"stts", FullBox("stts", times)}, {"ctts", FullBox("ctts", offsets)}};
    return movie;
}

double SecondsFor(const Bytes& content, size_t units) {
    Session session(content, size_t{128} << 20);
    const std::clock_t start = std::clock();
    EXPECT_TRUE(session.Start());
    EXPECT_EQ(session.Deliver(units).size(), units);
    KivMp4Rewind(session.demux);
    session.Exercise();
    session.Close();
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

TEST(Limits, WorkGrowsWithTheFile) {
    struct Case {
        const char* name;
        Movie (*build)(uint32_t);
        uint32_t n, units;
    };
    const Case cases[] = {
        {"empty boxes", Boxes, 500000, 3},
        {"tracks", [](uint32_t n) { return Movie{.tracks = std::vector<Track>(n, AudioTrack(2))}; }, 10000, 100},
        {"samples in one chunk", OneChunk, 300000, 0},
        {"units of one byte in a sample", Nals, 1 << 19, 1},
        {"chunk map entries without samples",
         [](uint32_t n) {
             return LongTable("stsc", {1, 1, 1}, {2, 0, 1}, {2, 1, 1}, n);
         },
         1000000, 40},
        {"times of no sample",
         [](uint32_t n) {
             return LongTable("stts", {10, 3000}, {0, 3000}, {20, 3000}, n);
         },
         1000000, 60},
        {"offsets of no sample",
         [](uint32_t n) {
             return LongTable("ctts", {10, 0}, {0, 3000}, {20, 3000}, n);
         },
         1000000, 60},
        {"sample numbers that wrap", WrappingNumbers, 200000, 60},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const uint32_t n = c.n / SweepStep();
        const Bytes small = Mp4Builder::Build(c.build(n / 8)), large = Mp4Builder::Build(c.build(n));
        bool linear = false;
        for (int attempt = 0; attempt < 3 && !linear; attempt++)  // other programs disturb a clock
            linear = SecondsFor(large, c.units ? c.units : n) < 32 * SecondsFor(small, c.units ? c.units : n / 8) + 0.1;
        EXPECT_TRUE(linear);
    }
}

}  // namespace
}  // namespace kivmp4::test
