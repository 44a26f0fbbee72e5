// Fuzz target: the exports, called in any order by a script, with a player that misbehaves.
#include "Player.h"

#include <atomic>

using namespace kivmp4::fuzz;

namespace {

constexpr size_t kCapacities[] = {400 << 10, 300 << 10, 240 << 10, 201 << 10, 150 << 10, 9000, 1300, 0};
constexpr const char* kPaths[] = {"a.mp4", "%s%n.m3d", "a", "a.mpd"};
constexpr uint32_t kMostHandles = 3;  // each costs a thread
constexpr uint32_t kPatientRuns = 64, kPatientEvery = 4096;  // a size that never comes costs half a second

enum Fault : uint8_t { kNone, kShort, kLate, kOver, kError };
enum SizeMode : uint8_t { kKnown, kZeroFirst, kNegativeFirst, kGrowing, kShrinking, kTooLarge, kHuge, kNever };

// One for all runs, so that a late callback of an earlier handle finds it dead. Calls come from two threads.
class Player {
public:
    Memory memory{.largest = 1 << 20};
    FileInterface interface = {
        this,
        [](void* c, const char*, uint32_t) { return static_cast<Player*>(c)->Open(); },
        [](void* c) { return static_cast<Player*>(c)->Close(); },
        [](void* c, void* to, int64_t offset, uint32_t n) { return static_cast<Player*>(c)->Read(to, offset, n); },
        [](void* c) { return static_cast<Player*>(c)->GetSize(); },
    };
    std::atomic<bool> alive{false};  // calls are allowed

    void Reset(Input& input) {
        bytes = input.file;
        size = static_cast<int64_t>(input.fileSize);
        fault = static_cast<Fault>(input.Next() % 5);
        faultCall = input.Next() % 32;
        faultCount = input.Next() % 32;
        const uint8_t sizes = input.Next();
        sizeMode = static_cast<SizeMode>(sizes & 7);
        sizeAsks = sizes >> 3 & 3;
        refuseOpen = sizes >= 0xF0;
        memory.refuseFrom = input.Next();
        memory.calls = 0;
        const bool patient = ++runs < kPatientRuns || runs % kPatientEvery == 0;
        patience = patient && sizeMode == kNever ? 5000 : 4;
        reads = asks = 0;
        told = 0;
    }
    /// The handle is gone, or none came to be.
    void CheckGone() {
        Require(memory.outstanding == 0, "all blocks are given back");
        Require(opens == closes, "one close for each open");
        alive = false;
    }

private:
    int32_t Open() {
        Require(alive && opens == closes, "one file is open at a time");
        opens += !refuseOpen;
        return refuseOpen ? -1 : 0;
    }
    int32_t Close() {
        Require(alive && ++closes == opens, "an open file is closed once");
        return 0;
    }
    uint32_t Read(void* destination, int64_t offset, uint32_t count) {
        Require(alive && opens > closes, "reads happen while the file is open");
        Require(!reading.exchange(true), "one read at a time");
        Require(count > 0 && offset >= 0 && offset <= told && count <= told - offset, "reads lie inside the file");
        const uint32_t call = reads++;
        const uint32_t answers[] = {count, count - 1, 0, count + 1, UINT32_MAX};  // by Fault
        const uint32_t answer = answers[call >= faultCall && call - faultCall < faultCount ? fault : kNone];
        std::memset(destination, static_cast<int>(call), std::min(answer, count));
        if (offset < size)
            std::memcpy(destination, bytes + offset, static_cast<size_t>(std::min<int64_t>(std::min(answer, count), size - offset)));
        reading = false;
        return answer;
    }
    int64_t GetSize() {
        Require(alive && opens > closes, "the size is asked while the file is open");
        const int64_t firstAndRest[][2] = {{size, size}, {0, size}, {INT64_MIN, size}, {size / 2, size},  // by SizeMode
                                           {size, size / 2}, {size, size + 70000}, {size, INT64_MAX}, {0, 0}};
        const uint32_t ask = asks++;
        const int64_t planned = firstAndRest[sizeMode][ask < sizeAsks ? 0 : 1];
        const int64_t answer = planned <= 0 && ask > patience ? 1 : planned;
        for (int64_t before = told; before < answer && !told.compare_exchange_weak(before, answer);) {
        }
        return answer;
    }

    const uint8_t* bytes = nullptr;
    int64_t size = 0;
    Fault fault = kNone;  // what reads from number `faultCall` on do, `faultCount` of them
    SizeMode sizeMode = kKnown;
    uint32_t faultCall = 0, faultCount = 0, sizeAsks = 0, patience = 0, runs = 0;
    bool refuseOpen = false;
    std::atomic<bool> reading{false};
    std::atomic<uint32_t> opens{0}, closes{0}, reads{0}, asks{0};
    std::atomic<int64_t> told{0};  // the largest size that the module has heard
};

Player player;
uint8_t heapMemory[kCapacities[0]], unitCopy[kCapacities[0]];

class Script {
public:
    explicit Script(Input& source) : input(source) {
        const uint8_t heap = input.Next(), rest = input.Next();
        capacity = kCapacities[heap & 7];
        capacity -= std::min<size_t>(capacity, heap >> 3 & 15);  // its end stays, its beginning gets out of line
        path = kPaths[rest & 3];
        logLevel = rest >> 2 == 4 ? 4 : 0;
    }
    void Run() {
        while (input.next != input.end)
            Call(input.Next());
        Destroy(demux);
    }

private:
    uint8_t* Heap() const { return heapMemory + sizeof heapMemory - capacity; }

    void Create() {
        if (++handles > kMostHandles)
            return;
        player.alive = true;
        live = demux = KivMp4Create(path, &player.interface, &player.memory.interface, Heap(), capacity, 7, logLevel);
        tracks = 0;
        delivered = false;
        if (!live)
            player.CheckGone();
    }

    void Destroy(Mp4Demux* handle) {
        const bool wasLive = live && handle == live;
        Require(KivMp4Destroy(handle) == (wasLive ? 0 : -1), "a handle is destroyed once");
        if (!wasLive)
            return;
        live = nullptr;
        player.CheckGone();
        std::memset(Heap(), 0xA9, capacity);  // the player's again
    }

    void Deliver(int32_t (*deliver)(Mp4Demux*, AccessUnit*), Mp4Demux* handle, AccessUnit* unit) {
        const int32_t answer = deliver(handle, unit);
        Require(answer >= -1 && answer <= 1, "deliveries answer -1, 0 or 1");
        if (answer != 0)
            return;
        Require(live && unit && unit->size > 0 && unit->size <= unit->capacity && unit->trackIndex < tracks, "units fit");
        delivered = true;
        std::memcpy(unitCopy, unit->payload, static_cast<size_t>(unit->size));
        std::memset(unit->payload, 0x5C, static_cast<size_t>(unit->capacity));  // the player may scribble on it
    }

    void Describe(Mp4Demux* handle, int32_t track) {
        CodecInfo info = {};
        const int32_t answer = KivMp4GetTrackInfo(handle, track, &info);
        Require(answer == -1 || (track < static_cast<int32_t>(tracks) && info.kind <= 1), "only tracks are described");
        Require(KivMp4GetTrackInfo(handle, track, nullptr) == -1, "a null record is refused");
    }

    void Jump(Mp4Demux* handle, uint8_t where) {
        const int64_t hostile[] = {-1, INT64_MIN, INT64_MAX, 0};
        const int32_t answer = KivMp4JumpPTS(handle, where < 4 ? hostile[where] : (where - 4) * int64_t{1500});
        Require(answer >= -2 && answer <= 0, "seeks answer -2, -1 or 0");
    }

    void CallSmallOnes(Mp4Demux* handle, uint32_t seconds) {
        Require(KivMp4SetAvailableBW(handle, 1) + KivMp4GetAvailableBW(handle) + KivMp4Unsupported() == -3, "-1 each");
        Require(KivMp4TicksToSeconds(KivMp4TimeToTicks(seconds * 10000)) == seconds, "a second has 90000 ticks");
        Require(!KivMp4Create(nullptr, nullptr, nullptr, nullptr, 0, 0, 0), "null records make no handle");
    }

    // The operation, and which track, record or handle it is for.
    void Call(uint8_t code) {
        const uint32_t which = code >> 4;
        Mp4Demux* handle = which == 15 ? nullptr : demux;  // one that was destroyed is refused like null
        AccessUnit* unit = which == 14 ? nullptr : &units[which & 3];
        const int32_t track = static_cast<int32_t>(which & 7) - 1;
        switch (code & 15) {
        case 0: return Create();
        case 1: (void)KivMp4Open(handle, which == 14 ? nullptr : &tracks, which == 13 ? nullptr : &duration); return;
        case 2: return Destroy(handle);
        case 3: (void)KivMp4EnableTrack(handle, track, which < 8); return;
        case 4: return Describe(handle, track);
        case 5: return Deliver(KivMp4GetNextUnit, handle, unit);
        case 6:
            for (int i = 0; i < 8; ++i)
                Deliver(KivMp4GetNextUnit, handle, unit);
            return;
        case 7: return Deliver(KivMp4GetNextSyncUnit, handle, unit);
        case 8: return Deliver(KivMp4GetPrevSyncUnit, handle, unit);
        case 9: return Jump(handle, input.Next());
        case 10: return Require(KivMp4GetNextUnitData(handle, unitCopy) == (live && handle && delivered ? 0 : -1), "copy");
        case 11: (void)KivMp4Rewind(handle); return;
        case 12: (void)KivMp4InitUnit(handle, unit); return;
        case 13: return KivMp4FlushFileReader(handle);
        case 14: return KivMp4ResumeFileReader(handle);
        default: return CallSmallOnes(handle, which);
        }
    }

    Input& input;
    size_t capacity;
    const char* path;
    int32_t logLevel;
    Mp4Demux* demux = nullptr;  // the last one, dead or alive
    Mp4Demux* live = nullptr;
    uint32_t handles = 0, tracks = 0;
    int64_t duration = 0;
    AccessUnit units[4] = {};  // kept from handle to handle
    bool delivered = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    player.Reset(input);
    Script(input).Run();
    return 0;
}
