// measure_kivmp4 FILE: opens it, takes every unit of every track, seeks at random and winds by key frames.
#include <KivMp4.h>

#include "DiskFile.h"
#include "Measure.h"

namespace kivmp4::bench {
namespace {

constexpr size_t kHeapSize = size_t{64} << 20;  // touched as far as the module uses it

int Fail(const char* step) {
    std::fprintf(stderr, "measure_kivmp4: %s failed\n", step);
    return 1;
}

int Seek(Mp4Demux* demux, AccessUnit& unit, double ticks) {
    Fractions fractions;
    int found = 0;
    const Stopwatch watch;
    for (int seek = 0; seek < kSeeks; ++seek) {
        const auto time = static_cast<int64_t>(fractions.Next() * ticks);
        found += KivMp4JumpPTS(demux, time) == KIVMP4_OK && KivMp4GetNextUnit(demux, &unit) == KIVMP4_OK;
    }
    Report("seek_us", watch.Elapsed() / kSeeks * 1e6);
    return found >= kSeeks * 9 / 10 ? 0 : Fail("seeking");  // times past the last sample find nothing
}

int Wind(Mp4Demux* demux, AccessUnit& unit) {
    int units = 0, result = 0;
    KivMp4Rewind(demux);
    KivMp4FlushFileReader(demux);
    const Stopwatch watch;
    while ((result = KivMp4GetNextSyncUnit(demux, &unit)) == KIVMP4_OK)
        ++units;
    const double seconds = watch.Elapsed();
    KivMp4ResumeFileReader(demux);
    Report("keys", units);
    Report("sweep_us", seconds / (units > 0 ? units : 1) * 1e6);
    return result == KIVMP4_END ? 0 : Fail("winding");
}

int Measure(const char* path) {
    DiskFile source;
    const FileInterface file = source.Interface();
    const ClientAllocator memory = {
        nullptr,
        [](void*, size_t, size_t size) { return std::malloc(size); },
        [](void*, void* block) { std::free(block); },
    };
    void* heap = std::malloc(kHeapSize);
    uint32_t tracks = 0, sum = 0;
    int64_t duration = 0;
    Stopwatch opening;
    Mp4Demux* demux = KivMp4Create(path, &file, &memory, heap, kHeapSize, 0, KIVMP4_LOG_NONE);
    if (!demux || KivMp4Open(demux, &tracks, &duration) != KIVMP4_OK)
        return Fail("opening");
    Report("open_ms", opening.Elapsed() * 1e3);

    bool video = false;
    for (uint32_t track = 0; track < tracks; ++track) {
        CodecInfo info = {};
        const auto index = static_cast<int32_t>(track);
        if (KivMp4GetTrackInfo(demux, index, &info) != KIVMP4_OK || KivMp4EnableTrack(demux, index, 1) != KIVMP4_OK)
            return Fail("enabling a track");
        video = video || info.kind == KIVMP4_KIND_VIDEO;
    }
    AccessUnit unit = {};
    KivMp4InitUnit(demux, &unit);
    double units = 0;
    int32_t result = 0;
    const Stopwatch delivery;
    // The unit already lies in the record's own block: that is the copy that the other side makes.
    for (; (result = KivMp4GetNextUnit(demux, &unit)) == KIVMP4_OK; ++units)
        sum += unit.size > 0 ? unit.payload[unit.size / 2] : 0u;
    Report("deliver_s", delivery.Elapsed());
    Report("units", units);
    Report("memory_kib", PeakMemory());
    Report("sum", sum);
    // At its end a video track refuses to seek.
    if (result != KIVMP4_END || KivMp4Rewind(demux) != KIVMP4_OK || KivMp4GetNextUnit(demux, &unit) != KIVMP4_OK)
        return Fail("delivery");
    const auto ticks = static_cast<double>(KivMp4TimeToTicks(static_cast<uint64_t>(duration)));
    if (Seek(demux, unit, ticks) != 0 || (video && Wind(demux, unit) != 0))
        return 1;
    return KivMp4Destroy(demux) == KIVMP4_OK ? 0 : Fail("closing");  // the heap goes with the process
}

}  // namespace
}  // namespace kivmp4::bench

int main(int argc, char** argv) { return argc == 2 ? kivmp4::bench::Measure(argv[1]) : 2; }
