// slow_kivmp4 FILE: plays and seeks in it on a slow device, through the module.
#include <KivMp4.h>

#include "SlowDevice.h"

namespace kivmp4::bench {
namespace {

class Demuxer {
public:
    Demuxer(const char* filePath, SlowDevice& slowDevice) : path(filePath), device(slowDevice) {}

    bool Open() {
        uint32_t tracks = 0;
        int64_t duration = 0;
        demux = KivMp4Create(path, &file, &memory, std::malloc(kHeapSize), kHeapSize, 0, 0);
        if (!demux || KivMp4Open(demux, &tracks, &duration) != 0)
            return false;
        for (uint32_t track = 0; track < tracks; ++track) {
            CodecInfo info = {};
            if (KivMp4GetTrackInfo(demux, static_cast<int32_t>(track), &info) == 0)
                KivMp4EnableTrack(demux, static_cast<int32_t>(track), 1);
        }
        ticks = static_cast<double>(KivMp4TimeToTicks(static_cast<uint64_t>(duration)));
        return KivMp4InitUnit(demux, &unit) == 0;
    }
    int64_t Take() { return KivMp4GetNextUnit(demux, &unit) == 0 ? unit.size : -1; }
    void Seek(double fraction) {
        if (KivMp4JumpPTS(demux, static_cast<int64_t>(fraction * ticks)) == 0)
            Take();
    }

private:
    static constexpr size_t kHeapSize = size_t{64} << 20;  // touched as far as the module uses it

    const char* path;
    SlowDevice& device;
    const FileInterface file = {
        &device,
        [](void*, const char*, uint32_t) -> int32_t { return 0; },
        [](void*) -> int32_t { return 0; },
        [](void* context, void* destination, int64_t offset, uint32_t size) {
            const ssize_t got = static_cast<SlowDevice*>(context)->Read(destination, offset, size);
            return got == static_cast<ssize_t>(size) ? size : UINT32_MAX;
        },
        [](void* context) { return static_cast<SlowDevice*>(context)->Size(); },
    };
    const ClientAllocator memory = {
        nullptr,
        [](void*, size_t, size_t size) { return std::malloc(size); },
        [](void*, void* block) { std::free(block); },
    };
    Mp4Demux* demux = nullptr;  // goes with the process, as its heap
    AccessUnit unit = {};
    double ticks = 0;
};

}  // namespace
}  // namespace kivmp4::bench

int main(int argc, char** argv) {
    kivmp4::bench::SlowDevice device;
    if (argc != 2 || !device.Open(argv[1]))
        return 2;
    kivmp4::bench::Demuxer demuxer(argv[1], device);
    return kivmp4::bench::MeasureOnSlowDevice(device, demuxer);
}
