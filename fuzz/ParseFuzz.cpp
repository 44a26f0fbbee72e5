// Fuzz target: boxes, tables, look-ups, parameter sets and unit formatting over bytes in memory, without a thread.
#include "Player.h"

#include "codec/H264Sps.h"
#include "container/FileMovie.h"
#include "platform/Heap.h"

using namespace kivmp4;
using namespace kivmp4::fuzz;

namespace {

alignas(16) uint8_t heapMemory[96 << 10];

class ByteSource : public DataSource {
public:
    ByteSource(const Input& from, uint32_t failing) : input(from), failingRead(failing) {}
    ReadStatus Read(int64_t offset, uint32_t count, void* destination) override {
        if (offset < 0 || offset > GetSize() || count > GetSize() - offset || ++reads == failingRead)
            return ReadStatus::Failed;
        std::memcpy(destination, input.file + offset, count);
        return ReadStatus::Done;
    }
    int64_t GetSize() override { return static_cast<int64_t>(input.fileSize); }

private:
    const Input& input;
    const uint32_t failingRead;  // from 1; 0: none
    uint32_t reads = 0;
};

// All that the heap can hold besides its bookkeeping, in one block: there again when everything has been given back.
bool HeapIsEmpty(size_t capacity) {
    void* all = ModuleAllocRaw(16, capacity - (sizeof(platform::Heap) + 15) / 16 * 16 - 16);
    ModuleFree(all);
    return all != nullptr;
}

// Every other level is loaded whole, so that children are read from memory as well as from the file.
void Walk(Mp4Box& box, int depth) {
    const uint8_t* bytes = depth % 2 ? box.AcquireData() : nullptr;
    box.ParseChildren(depth % 3 ? 0 : 8);
    for (uint32_t position = 0; depth < 8 && position < std::min<uint32_t>(box.GetChildCount(), 16); ++position)
        Walk(*box.GetChild(position), depth + 1);
    if (bytes)
        box.ReleaseData();
}

void LookUp(Track& track, int32_t sample, uint32_t random) {
    const int64_t hostile[] = {0, -1, INT64_MIN, INT64_MAX, random};
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

void Format(Track& track, FileMovie& movie, int32_t sample, AccessUnit& unit) {
    UnitHandler* handler = track.GetUnitHandler();
    const int64_t offset = track.GetSampleOffset(sample);
    if (!handler)
        return;
    unit.size = 0;
    if (sample == 0)
        handler->Reset();
    const int32_t size = handler->FormatUnit(unit, movie, offset, track.GetSampleSize(sample));
    Require(unit.size >= 0 && unit.size <= unit.capacity && (size == 0 || size == unit.size), "units fit their block");
}

// Samples forward, backward, at random, and where none is; the script tells which of these come first.
void Exercise(Track& track, FileMovie& movie, uint32_t random) {
    CodecInfo info = {}, again = {};
    const bool described = track.GetTrackInfo(&info, 0);
    Require(track.GetTrackInfo(&again, 0) == described && !std::memcmp(&info, &again, sizeof info), "one description");
    (void)track.SelectUnitHandler(&info);
    AccessUnit unit = {};
    const uint32_t count = static_cast<uint32_t>(track.SampleCount());
    for (uint32_t ask = 0; ask < 32; ++ask) {
        random = random * 1664525 + 1013904223;
        const uint32_t step = ask % 8, anywhere = random / 256 % std::max<uint32_t>(count, 1);
        const uint32_t hostile[] = {0xFFFFFFFF, 0x80000000, 0x7FFFFFFF, count, count - 1, 0, 1, count / 2};
        const uint32_t samples[] = {step, count - 1 - step, anywhere, hostile[step]};
        const int32_t sample = static_cast<int32_t>(samples[(ask / 8 + random) % 4]);
        LookUp(track, sample, random >> 8);
        Format(track, movie, sample, unit);
    }
    ModuleFree(unit.payload);
}

void AnalyseRecord(const Input& input) {
    uint8_t* copy = static_cast<uint8_t*>(std::malloc(input.fileSize));  // exactly as long, for AddressSanitizer
    std::memcpy(copy, input.file, input.fileSize);
    H264SpsInfo sps = {};
    ExtractSPSInformation({copy, input.fileSize}, sps, 0);
    std::free(copy);
}

}  // namespace

// The script: heap capacity, failing read, refused blocks, whether to walk all boxes, order of look-ups.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    if (input.fileSize > 0 && input.file[0] == 1) {  // no box of a small file begins so
        AnalyseRecord(input);
        return 0;
    }
    const size_t capacity = sizeof heapMemory - input.Next() / 4 * size_t{1504};
    ByteSource source(input, input.Next());
    Memory memory{.largest = 32 << 10, .refuseFrom = input.Next()};
    const bool walk = input.Next() % 4 == 1;
    const uint32_t random = input.Next();
    const auto newRoot = [&] { return ModuleNew<Mp4Box>(&memory.interface, &source, int64_t{0}, source.GetSize(), 0u, 0u); };

    Require(CreateModuleHeap(heapMemory, capacity) && HeapIsEmpty(capacity), "a new heap is empty");
    if (Mp4Box* root = walk ? newRoot() : nullptr) {
        Walk(*root, 0);
        delete root;
    }
    Mp4Box* root = newRoot();
    if (FileMovie* movie = root ? ModuleNew<FileMovie>(root, &memory.interface, 0) : nullptr) {
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
