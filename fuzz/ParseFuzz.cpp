// Fuzz target: boxes, tables, look-ups, parameter sets and unit formatting over bytes in memory, without a thread.
#include "Player.h"

#include "codec/H264Sps.h"
#include "container/FileMovie.h"
#include "platform/Heap.h"

#include <vector>

using namespace kivmp4;
using namespace kivmp4::fuzz;

namespace {

alignas(16) uint8_t heapMemory[96 << 10];

struct ByteSource : DataSource {
    explicit ByteSource(Input& from) : input(from) {}
    ReadStatus Read(int64_t offset, uint32_t count, void* destination) override {
        if (offset < 0 || offset > GetSize() || count > GetSize() - offset || ++reads == failingRead)
            return ReadStatus::Failed;
        std::memcpy(destination, input.file + offset, count);
        return ReadStatus::Done;
    }
    int64_t GetSize() override { return static_cast<int64_t>(input.fileSize); }

    Input& input;
    uint32_t reads = 0, failingRead = input.Next();  // from 1; 0: none
};

// All that the heap can hold besides its bookkeeping, in one block: there again when everything has been given back.
bool HeapIsEmpty(size_t capacity) {
    void* all = ModuleAllocRaw(16, capacity - (sizeof(platform::Heap) + 15) / 16 * 16 - 16);
    ModuleFree(all);
    return all != nullptr;
}

void LookUp(Track& track, int32_t sample, uint32_t random) {
    const int64_t hostile[] = {0, -1, INT64_MIN, INT64_MAX, track.GetSampleOffset(sample)};
    (void)track.GetDecodeTime(sample);
    (void)track.GetSampleDuration(sample);
    (void)track.GetPrevSyncSample(sample);
    for (const int64_t time : {track.GetPresentationTime(sample), hostile[random % std::size(hostile)]}) {
        int32_t index = -7;
        int64_t found = 0;
        (void)track.GetSampleIndex(time);
        Require(track.GetJumpSampleIndex(time, index, found) || index == -7, "a failed search leaves its out alone");
        (void)track.GetSyncSampleIndex(random & 1, sample, index, found);
    }
}

// Samples forward, backward, at random, and where none is; the script tells which of these come first.
void Exercise(Track& track, FileMovie& movie, uint32_t random) {
    CodecInfo info = {};
    (void)track.GetTrackInfo(&info, 0);
    const int fields[] = {4, 8, 12, 40, 56, 60, 76, 84, 85};
    CodecInfo other = info;
    reinterpret_cast<uint8_t*>(&other)[fields[random % 9]] ^= 1;
    (void)track.SelectUnitHandler(&other);  // which the track may not have
    (void)track.SelectUnitHandler(&info);
    UnitHandler* handler = track.GetUnitHandler();
    AccessUnit unit = {};
    const uint32_t first = random, count = static_cast<uint32_t>(track.SampleCount());
    for (uint32_t ask = 0; ask < 32; ++ask) {
        random = random * 1664525 + 1013904223;
        const uint32_t step = ask % 8;
        const uint32_t hostile[] = {0xFFFFFFFF, 0x80000000, 0x7FFFFFFF, count, count - 1, 0, 1, count / 2};
        const uint32_t samples[] = {step, count - 1 - step, random / 256 % std::max(count, 1u), hostile[step]};
        const int32_t sample = static_cast<int32_t>(samples[(ask / 8 + first) % 4]);
        LookUp(track, sample, random >> 8);
        if (!handler)
            continue;
        unit.size = 0;
        if (random & 1)
            handler->Reset();
        const int64_t offset = track.GetSampleOffset(sample);
        const int32_t size = handler->FormatUnit(unit, movie, offset, track.GetSampleSize(sample));
        Require(handler->GetMaxUnitSize(100) >= 100, "a bound is no smaller than the sample");
        Require(unit.size >= 0 && unit.size <= unit.capacity && (!size || size == unit.size), "units fit their block");
    }
    ModuleFree(unit.payload);
}

}  // namespace

// The script: heap capacity, failing read, refused blocks, order of look-ups.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    if (input.fileSize > 0 && input.file[0] == 1) {                // no box of a small file begins so
        const std::vector<uint8_t> record(input.file, input.end);  // exactly as long, for AddressSanitizer
        H264SpsInfo sps = {};
        (void)ExtractSPSInformation({record.data(), record.size()}, sps, 0);
        return 0;
    }
    const size_t capacity = sizeof heapMemory - input.Next() / 4 * size_t{1504};
    ByteSource source(input);
    Memory memory(32 << 10, input.Next());
    Require(CreateModuleHeap(heapMemory, capacity) && HeapIsEmpty(capacity), "a new heap is empty");
    auto* root = ModuleNew<Mp4Box>(memory.Interface(), &source, int64_t{0}, source.GetSize(), 0u, 0u);
    if (FileMovie* movie = root ? ModuleNew<FileMovie>(root, memory.Interface(), 0) : nullptr) {
        for (uint32_t track = 0; track < std::min<uint32_t>(movie->TrackCount(), 4); ++track)
            Exercise(*movie->GetTrack(track), *movie, input.Next());
        ModuleDelete(movie);
        root = nullptr;  // the movie's
    }
    delete root;
    Require(HeapIsEmpty(capacity) && memory.AllIsBack(), "everything goes back to where it came from");
    DestroyModuleHeap();
    return 0;
}
