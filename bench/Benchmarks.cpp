// What delivery, opening, seeking and navigation cost as files grow, over movies in memory.
#include <benchmark/benchmark.h>

#include <memory>
#include <random>

#include "MemoryMovie.h"

namespace kivmp4::bench {
namespace {

constexpr Shape kMovie = {.tracks = 2};
constexpr Shape kOneChunk = {.samplesPerChunk = 0};
constexpr Shape kAllIntra = {.keyInterval = 1, .reordered = false};
constexpr Shape kManyTracks = {.tracks = 9};

// The library runs a benchmark several times with the same size: the movie is kept until another one is asked for.
MemoryMovie& MovieOf(const Shape& shape, benchmark::State& state) {
    static std::unique_ptr<MemoryMovie> movie;
    static const Shape* builtShape = nullptr;
    static int64_t builtSamples = 0;
    if (builtShape != &shape || builtSamples != state.range(0)) {
        movie = std::make_unique<MemoryMovie>(shape, static_cast<uint32_t>(state.range(0)));
        builtShape = &shape;
        builtSamples = state.range(0);
    }
    state.SetComplexityN(state.range(0));
    return *movie;
}

// A time that can be sought: the last sample's and what lies past it cannot.
int64_t AnyTime(const Player& player, std::mt19937_64& random) {
    return static_cast<int64_t>(random() % static_cast<uint64_t>(player.ticks * 99 / 100));
}

void Open(benchmark::State& state, const Shape& shape) {
    MemoryMovie& movie = MovieOf(shape, state);
    for (auto _ : state)
        Player player(movie);
}

// Every unit of the file. "unit" is the time for one.
void Deliver(benchmark::State& state, const Shape& shape) {
    Player player(MovieOf(shape, state));
    double units = 0;
    for (auto _ : state) {
        while (KivMp4GetNextUnit(player.demux, &player.unit) == KIVMP4_OK)
            ++units;
        KivMp4Rewind(player.demux);
    }
    if (units != static_cast<double>(state.iterations() * MovieOf(shape, state).Samples()))
        state.SkipWithError("delivery stopped before the end");
    state.counters["unit"] = benchmark::Counter(units, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void LookUp(benchmark::State& state, const Shape& shape) {
    Player player(MovieOf(shape, state));
    std::mt19937_64 random(1);
    for (auto _ : state) {
        if (KivMp4JumpPTS(player.demux, AnyTime(player, random)) != KIVMP4_OK)
            state.SkipWithError("no sample at the time");
    }
}

// A jump and the unit that it leads to.
void Seek(benchmark::State& state, const Shape& shape) {
    Player player(MovieOf(shape, state));
    std::mt19937_64 random(1);
    for (auto _ : state) {
        if (KivMp4JumpPTS(player.demux, AnyTime(player, random)) != KIVMP4_OK ||
            KivMp4GetNextUnit(player.demux, &player.unit) != KIVMP4_OK)
            state.SkipWithError("no unit at the time");
    }
}

// One key frame after the other as a player winds, over and over.
void KeySweep(benchmark::State& state, const Shape& shape) {
    Player player(MovieOf(shape, state));
    KivMp4FlushFileReader(player.demux);
    for (auto _ : state) {
        const int32_t result = KivMp4GetNextSyncUnit(player.demux, &player.unit);
        if (result > 0)
            KivMp4Rewind(player.demux);
        else if (result < 0)
            state.SkipWithError("no key frame");
    }
}

void Grow(benchmark::internal::Benchmark* benchmark) {
    for (int64_t samples = 10000; samples <= 1280000; samples *= 2)
        benchmark->Arg(samples);
    benchmark->Complexity()->UseRealTime();
}

#define KIVMP4_SHAPES(function, unit)                                           \
    BENCHMARK_CAPTURE(function, movie, kMovie)->Apply(Grow)->Unit(unit);        \
    BENCHMARK_CAPTURE(function, one_chunk, kOneChunk)->Apply(Grow)->Unit(unit); \
    BENCHMARK_CAPTURE(function, all_intra, kAllIntra)->Apply(Grow)->Unit(unit); \
    BENCHMARK_CAPTURE(function, many_tracks, kManyTracks)->Apply(Grow)->Unit(unit)

KIVMP4_SHAPES(Open, benchmark::kMillisecond);
KIVMP4_SHAPES(Deliver, benchmark::kMillisecond);
KIVMP4_SHAPES(LookUp, benchmark::kMicrosecond);
KIVMP4_SHAPES(Seek, benchmark::kMicrosecond);
KIVMP4_SHAPES(KeySweep, benchmark::kMicrosecond);

}  // namespace
}  // namespace kivmp4::bench
