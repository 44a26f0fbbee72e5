// growth_shapes SHAPE N: opens a file with N of what SHAPE names, plays, winds and seeks; callgrind counts all of it.
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "MemoryMovie.h"
#include "support/Mp4Builder.h"

namespace kivmp4::bench {
namespace {

using namespace test;

// Keeps the samples away from the file's end, where the reader starts over for each read.
const Bytes kLast = Box("free", Bytes(256 << 10));

Movie Boxes(uint32_t n) {
    return {.tracks = {VideoTrack()}, .front = Join(std::vector<Bytes>(n, Hex("00000008 66726565")))};
}

Movie Tracks(uint32_t n) { return {.tracks = std::vector<Track>(n, AudioTrack(2))}; }

Movie OneChunk(uint32_t n) {
    Track track = AudioTrack(0);
    track.samples.assign(n, Bytes(1));
    track.samplesPerChunk = n;
    return {.tracks = {track}, .back = kLast};
}

// Units of one byte in a single sample.
Movie Nals(uint32_t n) {
    Track track{.entry = VideoEntry("avc1", Box("avcC", AvcC(1, {}, {}))),
                .samples = {Prefixed(1, std::vector<Bytes>(n, {9}))}};
    return {.tracks = {track}, .back = kLast};
}

// The table's first entry, then n others that no sample uses, then the last one.
Movie LongTable(const char* type, const Numbers& first, const Numbers& entry, const Numbers& last, uint32_t n) {
    Put words;
    words.U32(n + 2).Each(first, 4);
    for (uint32_t i = 0; i < n; i++)
        words.Each(entry, 4);
    Movie movie{.tracks = {VideoTrack(30), AudioTrack(30)}};
    movie.tracks[0].replace = {{"stss", Words("stss", {3, 1, 11, 21})}, {type, FullBox(type, words.Each(last, 4))}};
    return movie;
}

Movie ChunkMap(uint32_t n) { return LongTable("stsc", {1, 1, 1}, {2, 0, 1}, {2, 1, 1}, n); }
Movie Times(uint32_t n) { return LongTable("stts", {10, 3000}, {0, 3000}, {20, 3000}, n); }
Movie Offsets(uint32_t n) { return LongTable("ctts", {10, 0}, {0, 3000}, {20, 3000}, n); }

// Sound whose sample numbers wrap in both tables, so that a search meets the beginning and the end of one in turns.
Movie Wraps(uint32_t n) {
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

struct GrowingShape {
    const char* name;
    Movie (*build)(uint32_t);
    uint32_t units = 1000000;  // at most; each unit is chosen among all tracks
};
constexpr GrowingShape kShapes[] = {{"boxes", Boxes},        {"tracks", Tracks, 100}, {"one_chunk", OneChunk},
                                    {"nals", Nals},          {"times", Times},        {"offsets", Offsets},
                                    {"chunk_map", ChunkMap}, {"wraps", Wraps}};

// @return number of units delivered from the beginning on
uint32_t PlayWindAndSeek(Player& player, uint32_t most) {
    uint32_t units = 0;
    while (units < most && KivMp4GetNextUnit(player.demux, &player.unit) == KIVMP4_OK)
        ++units;
    for (int round = 0; round < 5; ++round) {
        KivMp4Rewind(player.demux);
        for (const auto wind : {KivMp4GetNextSyncUnit, KivMp4GetNextSyncUnit, KivMp4GetPrevSyncUnit})
            (void)wind(player.demux, &player.unit);
        for (const int64_t time : {int64_t{0}, int64_t{6000}, player.ticks / 2, player.ticks, int64_t{-1}})
            (void)KivMp4JumpPTS(player.demux, time);
    }
    return units;
}

int Run(const std::string& name, uint32_t n) {
    for (const GrowingShape& shape : kShapes) {
        if (name != shape.name)
            continue;
        MemoryMovie movie(Mp4Builder::Build(shape.build(n)));
        CALLGRIND_START_INSTRUMENTATION;
        Player player(movie);
        const uint32_t units = PlayWindAndSeek(player, shape.units);
        CALLGRIND_STOP_INSTRUMENTATION;
        if (units == 0)
            std::fprintf(stderr, "no units\n");
        return units == 0;
    }
    for (const GrowingShape& shape : kShapes)
        std::printf("%s\n", shape.name);
    return 0;
}

}  // namespace
}  // namespace kivmp4::bench

// Without arguments it lists the shapes.
int main(int argc, char** argv) {
    return kivmp4::bench::Run(argc == 3 ? argv[1] : "",
                              argc == 3 ? static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10)) : 0);
}
