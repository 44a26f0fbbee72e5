// Fuzz target: boxes, tables, look-ups, parameter sets and unit formatting over bytes in memory, without a thread.
#include "Player.h"

#include "codec/H264Sps.h"
#include "container/FileMovie.h"
#include "platform/Heap.h"

using namespace kivmp4;
using namespace kivmp4::fuzz;

namespace {

constexpr size_t kHeapCapacity = 96 << 10, kLargestTable = 32 << 10;
constexpr uint32_t kMostUnits = 12;

alignas(16) uint8_t heapMemory[kHeapCapacity];

class ByteSource : public DataSource {
public:
    explicit ByteSource(const Input& input) : bytes(input.file), size(static_cast<int64_t>(input.fileSize)) {}
    ReadStatus Read(int64_t offset, uint32_t count, void* destination) override {
        if (offset < 0 || offset > size || count > size - offset || reads++ == failingRead)
            return ReadStatus::Failed;
        std::memcpy(destination, bytes + offset, count);
        return ReadStatus::Done;
    }
    int64_t GetSize() override { return size; }

    uint32_t failingRead = UINT32_MAX;

private:
    const uint8_t* bytes;
    const int64_t size;
    uint32_t reads = 0;
};

// All that the heap can hold besides its bookkeeping, in one block: there again when everything has been given back.
bool HeapIsEmpty(size_t capacity) {
    void* all = ModuleAllocRaw(16, capacity - (sizeof(platform::Heap) + 15) / 16 * 16 - 16);
    ModuleFree(all);
    return all != nullptr;
}

// Every other level is loaded whole, so that children are read from memory as well as from the file.
void Walk(Mp4Box& box, int depth, bool load) {
    const uint8_t* bytes = load ? box.AcquireData() : nullptr;
    box.ParseChildren(depth % 3 ? 0 : 8);
    const uint32_t count = std::min<uint32_t>(box.GetChildCount(), 16);
    for (uint32_t position = 0; depth < 8 && position < count; ++position)
        Walk(*box.GetChild(position), depth + 1, !load);
    Require(count == 0 || box.CountChildren(box.GetChild(0)->GetType()) > 0, "the first child is found by its type");
    if (bytes)
        box.ReleaseData();
}

// Forward, backward, at random, and where no sample is.
int32_t PickSample(uint32_t phase, uint32_t step, uint32_t& random, uint32_t count) {
    const int32_t hostile[] = {-1, INT32_MIN, INT32_MAX, static_cast<int32_t>(count), static_cast<int32_t>(count - 1)};
    random = random * 1664525 + 1013904223;
    switch (phase) {
    case 0: return static_cast<int32_t>(step);
    case 1: return static_cast<int32_t>(count - 1 - step);
    case 2: return static_cast<int32_t>((random >> 8) % std::max<uint32_t>(count, 1));
    default: return hostile[step % std::size(hostile)];
    }
}

void LookUp(Track& track, int32_t sample, uint32_t random) {
    const int64_t hostile[] = {0, -1, INT64_MIN, INT64_MAX, random};
    const int64_t presented = track.GetPresentationTime(sample);
    (void)track.GetDecodeTime(sample);
    (void)track.GetSampleDuration(sample);
    (void)track.GetSampleOffset(sample);
    (void)track.GetPrevSyncSample(sample);
    for (const int64_t time : {presented, hostile[random % std::size(hostile)]}) {
        int32_t index = -7;
        int64_t found = 0;
        (void)track.GetSampleIndex(time);
        Require(track.GetJumpSampleIndex(time, index, found) || index == -7, "a failed search leaves its out alone");
        (void)track.GetSyncSampleIndex(random & 1, sample, index, found);
    }
}

void Format(Track& track, FileMovie& movie, int32_t sample, AccessUnit& unit) {
    unit.size = 0;
    const int64_t offset = track.GetSampleOffset(sample);
    const int32_t size = track.GetUnitHandler()->FormatUnit(unit, movie, offset, track.GetSampleSize(sample));
    Require(unit.size >= 0 && unit.size <= unit.capacity, "a unit lies inside its block");
    Require(size == 0 || (size == unit.size && ModuleOwnsPayload(unit.payload, static_cast<size_t>(unit.capacity))),
            "a unit lies in a payload block");
}

void Exercise(Track& track, FileMovie& movie, uint32_t random) {
    CodecInfo info = {}, again = {};
    const bool described = track.GetTrackInfo(&info, 0);
    Require(track.GetTrackInfo(&again, 0) == described && !std::memcmp(&info, &again, sizeof info), "one description");
    (void)track.SelectUnitHandler(&info);
    AccessUnit unit = {};
    const uint32_t count = static_cast<uint32_t>(track.SampleCount());
    for (uint32_t turn = 0; turn < 4; ++turn) {
        const uint32_t phase = (turn + (random >> 4)) % 4;
        for (uint32_t step = 0; step < kMostUnits; ++step) {
            const int32_t sample = PickSample(phase, step, random, count);
            LookUp(track, sample, random >> 8);
            if (track.GetUnitHandler() && step < 4) {
                if (step == 0)
                    track.GetUnitHandler()->Reset();
                Format(track, movie, sample, unit);
            }
        }
    }
    ModuleFree(unit.payload);
}

void AnalyseRecord(const Input& input) {
    uint8_t* copy = static_cast<uint8_t*>(std::malloc(input.fileSize));  // exactly as long, for AddressSanitizer
    std::memcpy(copy, input.file, input.fileSize);
    H264SpsInfo sps = {};
    CodecInfo info = {};
    ExtractSPSInformation({copy, input.fileSize}, sps, 0);
    GetH264_SPSInformation(sps, info, 0);
    std::free(copy);
}

}  // namespace

// The script: heap capacity, failing read, refused block, whether to walk all boxes, order of look-ups.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    if (input.fileSize > 0 && input.file[0] == 1) {  // no box of a small file begins so
        AnalyseRecord(input);
        return 0;
    }
    const size_t capacity = kHeapCapacity - (input.Next() / 4 * size_t{1500} & ~size_t{15});
    Memory memory;
    memory.largest = kLargestTable;
    ByteSource source(input);
    if (const uint8_t failing = input.Next())
        source.failingRead = failing - 1u;
    memory.refuseFrom = input.Next();
    memory.refuseRest = memory.refuseFrom % 2;
    const bool walk = input.Next() % 4 == 1;
    const uint32_t random = input.Next() * 16u;

    Require(CreateModuleHeap(heapMemory, capacity) && HeapIsEmpty(capacity), "a new heap is empty");
    if (Mp4Box* root = ModuleNew<Mp4Box>(memory.Interface(), &source, int64_t{0}, source.GetSize(), 0u, 0u)) {
        if (walk)
            Walk(*root, 0, false);
        delete root;
    }
    Mp4Box* root = ModuleNew<Mp4Box>(memory.Interface(), &source, int64_t{0}, source.GetSize(), 0u, 0u);
    if (FileMovie* movie = root ? ModuleNew<FileMovie>(root, memory.Interface(), 0) : nullptr) {
        for (uint32_t track = 0; track < std::min<uint32_t>(movie->TrackCount(), 4); ++track)
            Exercise(*movie->GetTrack(track), *movie, random + track);
        ModuleDelete(movie);
    } else {
        delete root;
    }
    Require(HeapIsEmpty(capacity), "everything goes back to the module heap");
    Require(memory.outstanding == 0, "everything goes back to the player");
    DestroyModuleHeap();
    return 0;
}
