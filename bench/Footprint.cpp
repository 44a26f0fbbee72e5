// footprint [--verbose] FILE|--film|--seeds DIRECTORY: what memory and stack the module takes from a player
// that opens the file, plays it, seeks and winds, and plays it again.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "DiskFile.h"
#include "Ledger.h"
#include "Measure.h"
#include "MemoryMovie.h"
#include "support/Mp4Builder.h"

namespace kivmp4::bench {
namespace {

using test::Box;
using test::Bytes;

constexpr size_t kHeapSize = size_t{64} << 20;
constexpr int kPlaces = 200;

/// One handle from its creation to its end, on a thread of its own with a stack that is looked at afterwards.
struct Session {
    const char* path;
    const FileInterface* file;
    size_t heapSize = kHeapSize;
    int32_t logLevel = KIVMP4_LOG_NONE;
    bool twice = false;

    int32_t tracks = 0;  // below 0: the file was refused
    uint64_t units = 0, bytes = 0, found = 0;
    uint64_t steadyUnits = 0;  // of the second time it was played
    Calls steady = {};
    Peaks opened = {}, played = {}, sought = {};  // up to the end of each step
    double ticks = 0;                             // duration, 90 kHz

    void Run() {
        RunOnWatchedStack(
            "player",
            [](void* session) -> void* {
                static_cast<Session*>(session)->Play();
                return nullptr;
            },
            this);
    }
    bool SameAs(const Session& other) const {
        return tracks == other.tracks && units == other.units && bytes == other.bytes && found == other.found;
    }

    void Play() {
        void* heap = std::malloc(heapSize);
        books.Clear();
        Mp4Demux* demux = KivMp4Create(path, file, &clientMemory, heap, heapSize, 0, logLevel);
        tracks = demux && Open(demux) ? tracks : -1;
        if (tracks >= 0)
            Exercise(demux);
        KivMp4Destroy(demux);
        std::free(heap);
    }

    bool Open(Mp4Demux* demux) {
        uint32_t count = 0;
        int64_t duration = 0;
        if (KivMp4Open(demux, &count, &duration) != KIVMP4_OK)
            return false;
        tracks = static_cast<int32_t>(count);
        ticks = static_cast<double>(KivMp4TimeToTicks(static_cast<uint64_t>(std::max<int64_t>(duration, 0))));
        for (int32_t track = 0; track < tracks; ++track) {
            CodecInfo info = {};
            if (KivMp4GetTrackInfo(demux, track, &info) == KIVMP4_OK)
                KivMp4EnableTrack(demux, track, 1);
        }
        opened = PeaksSoFar();
        return true;
    }

    void Exercise(Mp4Demux* demux) {
        AccessUnit unit = {};
        KivMp4InitUnit(demux, &unit);
        for (; KivMp4GetNextUnit(demux, &unit) == KIVMP4_OK; ++units)
            bytes += static_cast<uint64_t>(unit.size);
        played = PeaksSoFar();
        KivMp4Rewind(demux);
        Fractions fractions;
        for (int place = 0; place < kPlaces; ++place) {
            if (KivMp4JumpPTS(demux, static_cast<int64_t>(fractions.Next() * ticks)) == KIVMP4_OK)
                found += KivMp4GetNextUnit(demux, &unit) == KIVMP4_OK;
        }
        KivMp4Rewind(demux);
        KivMp4FlushFileReader(demux);
        for (auto step : {KivMp4GetNextSyncUnit, KivMp4GetPrevSyncUnit}) {
            for (int place = 0; place < kPlaces && step(demux, &unit) == KIVMP4_OK; ++place)
                ++found;
        }
        KivMp4ResumeFileReader(demux);
        found += KivMp4GetNextUnit(demux, &unit) == KIVMP4_OK;
        sought = PeaksSoFar();
        if (!twice)
            return;
        KivMp4Rewind(demux);
        const Calls before = CallsSoFar();
        while (KivMp4GetNextUnit(demux, &unit) == KIVMP4_OK)
            ++steadyUnits;
        steady = CallsSoFar() - before;
    }
};

void ReportStacks() {
    for (const auto& [thread, used] : books.stacks)
        std::printf("stack_%s %zu\n", thread.c_str(), used);
}

// The least block, in steps of 4 KiB, with which the session brings the same as with plenty. Tried from below: a larger
// block may fail again, because tables then fit into it and take the room of units.
void ReportLeastHeap(const Session& plenty) {
    Session session{.path = "", .file = nullptr, .heapSize = 192 << 10};  // the read-ahead buffer alone
    do {
        session = {.path = plenty.path, .file = plenty.file, .heapSize = session.heapSize + (4 << 10)};
        session.Run();
    } while (!session.SameAs(plenty));
    std::printf("least_heap %zu\nleast_heap_client_peak %zu\n", session.heapSize, books.client.peak);
}

int MeasureFile(const char* path, int32_t logLevel) {
    DiskFile disk;
    const FileInterface onDisk = disk.Interface();
    // Two hours, 30 pictures a second with B pictures and as many blocks of sound; the samples are tiny.
    MemoryMovie film = path ? MemoryMovie(Bytes()) : MemoryMovie({.tracks = 2}, 2 * 2 * 3600 * 30);
    Session session{.path = path ? path : "film.mp4",
                    .file = path ? &onDisk : film.Interface(),
                    .logLevel = logLevel,
                    .twice = true};
    session.Run();
    if (session.units == 0 || session.steadyUnits != session.units) {
        std::fprintf(stderr, "%s was not played\n", session.path);
        return 1;
    }
    std::printf("units %llu\nfound %llu\n", static_cast<unsigned long long>(session.units),
                static_cast<unsigned long long>(session.found));
    std::printf("steady_heap_calls %zu\nsteady_client_calls %zu\nsteady_malloc_calls %zu\n", session.steady.heap,
                session.steady.client, session.steady.system);
    const auto report = [](const char* step, const Peaks& peaks) {
        std::printf("%s_heap_peak %zu\n%s_client_peak %zu\n", step, peaks.heap, step, peaks.client);
    };
    report("opened", session.opened);
    report("played", session.played);
    report("sought", session.sought);
    ReportStacks();
    if (logLevel == KIVMP4_LOG_NONE)
        ReportLeastHeap(session);
    return 0;
}

void PlayHostile(Bytes bytes, int32_t logLevel) {
    MemoryMovie movie(std::move(bytes));
    Session session{.path = "hostile.mp4", .file = movie.Interface(), .heapSize = 1 << 20, .logLevel = logLevel};
    session.Run();
}

// A box in a box, a thousand deep, where the module looks for one: at the top, and in the entry of a sound track.
std::vector<Bytes> Nested() {
    Bytes moov, wave = test::Esds(test::Hex("1210"));
    for (int level = 0; level < 1000; ++level) {
        moov = Box("moov", moov);
        wave = Box("wave", wave);
    }
    test::Movie movie;
    movie.tracks = {test::Track{.entry = test::AudioEntry("mp4a", wave, 1)}};
    return {moov, test::Mp4Builder::Build(movie)};
}

int MeasureHostile(const char* directory, int32_t logLevel) {
    std::vector<Bytes> inputs = Nested();
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        std::ifstream stream(entry.path(), std::ios::binary);
        Bytes bytes{std::istreambuf_iterator<char>(stream), {}};
        // A seed ends with a script for the fuzzer; its last byte tells the length.
        if (!bytes.empty())
            bytes.resize(bytes.size() - 1 - std::min<size_t>(bytes.back(), bytes.size() - 1));
        inputs.push_back(std::move(bytes));
    }
    for (const Bytes& bytes : inputs) {
        PlayHostile(bytes, logLevel);
    }
    std::printf("files %zu\n", inputs.size());
    ReportStacks();
    return inputs.size() > 2 ? 0 : 1;
}

}  // namespace
}  // namespace kivmp4::bench

int main(int argc, char** argv) {
    using namespace kivmp4::bench;
    std::vector<std::string> words(argv + 1, argv + argc);
    int32_t logLevel = KIVMP4_LOG_NONE;
    if (!words.empty() && words[0] == "--verbose") {
        logLevel = KIVMP4_LOG_ALL;
        words.erase(words.begin());
    }
    if (words.size() == 2 && words[0] == "--seeds")
        return MeasureHostile(words[1].c_str(), logLevel);
    if (words.size() == 1)
        return MeasureFile(words[0] == "--film" ? nullptr : words[0].c_str(), logLevel);
    std::fprintf(stderr, "usage: footprint [--verbose] FILE|--film|--seeds DIRECTORY\n");
    return 2;
}
