// Fuzz target: the exports, called in any order by a script, with a player that misbehaves.
#include "Player.h"

#include <atomic>
#include <initializer_list>

using namespace kivmp4::fuzz;

namespace {

constexpr size_t kCapacities[] = {400 << 10, 300 << 10, 240 << 10, 201 << 10, 150 << 10, 9000, 1300, 0};
constexpr uint32_t kMostHandles = 3;
constexpr uint32_t kPatientRuns = 64, kPatientEvery = 4096;  // a size that never comes costs half a second

enum Fault : uint8_t { kNone, kShort, kLate, kOver, kError, kNoise };
enum SizeMode : uint8_t { kKnown, kZeroFirst, kNegativeFirst, kGrowing, kShrinking, kTooLarge, kHuge, kNeverKnown };

// Lives on, so that a late callback of an earlier run finds it dead.
class Player {
public:
    Memory memory;
    const uint8_t* bytes = nullptr;
    int64_t size = 0;
    Fault fault = kNone;  // what reads from number `faultCall` on do, `faultCount` of them
    uint32_t faultCall = 0, faultCount = 0;
    SizeMode sizeMode = kKnown;
    uint32_t sizeAsks = 0;  // answered before the mode changes
    bool refuseOpen = false;

    void Reset(Input& input) {
        bytes = input.file;
        size = static_cast<int64_t>(input.fileSize);
        fault = static_cast<Fault>(input.Next() % 6);
        faultCall = input.Next() % 32;
        faultCount = input.Next() % 32;
        const uint8_t sizes = input.Next();
        sizeMode = static_cast<SizeMode>(sizes & 7);
        sizeAsks = sizes >> 3 & 3;
        refuseOpen = sizes >= 0xF0;
        memory.largest = 1 << 20;
        const uint8_t refusal = input.Next();
        memory.refuseFrom = refusal & 0x7F;
        memory.refuseRest = refusal & 0x80;
        memory.calls = 0;
        reads = asks = 0;
        told = 0;
        const bool patient = ++runs < kPatientRuns || runs % kPatientEvery == 0;
        patience = patient && sizeMode == kNeverKnown ? 5000 : 4;
    }
    void Arm() { alive = true; }
    /// The handle is gone, or none came to be.
    void CheckGone() {
        Require(memory.outstanding == 0, "all blocks are given back");
        Require(opens == closes, "one close for each open");
        alive = false;
    }

    FileInterface* Interface() { return &interface; }

private:
    int32_t Open() {
        Require(alive && opens == closes, "one file is open at a time");
        return refuseOpen ? -1 : (++opens, 0);
    }
    int32_t Close() {
        Require(alive && ++closes == opens, "an open file is closed once");
        return 0;
    }
    uint32_t Read(uint8_t* destination, int64_t offset, uint32_t count) {
        Require(alive && opens > closes, "reads happen while the file is open");
        Require(!reading.exchange(true), "one read at a time");
        Require(count > 0 && offset >= 0 && offset <= told && count <= told - offset, "reads lie inside the file");
        const uint32_t call = reads++;
        const Fault now = call >= faultCall && call - faultCall < faultCount ? fault : kNone;
        const uint32_t answers[] = {count, count - 1, 0, count + 1, UINT32_MAX, count};  // by Fault
        const uint32_t filled = now == kLate || now == kError ? 0 : std::min(answers[now], count);
        std::memset(destination, static_cast<int>(call), filled);
        if (now != kNoise && offset < size)
            std::memcpy(destination, bytes + offset, std::min<size_t>(filled, static_cast<size_t>(size - offset)));
        reading = false;
        return answers[now];
    }
    int64_t GetSize() {
        Require(alive && opens > closes, "the size is asked while the file is open");
        const uint32_t ask = asks++;
        const int64_t firstAndRest[][2] = {{size, size}, {0, size}, {INT64_MIN, size}, {size / 2, size},
                                         {size, size / 2}, {size, size + 70000}, {size, INT64_MAX}, {0, 0}};
        const int64_t planned = firstAndRest[sizeMode][ask < sizeAsks ? 0 : 1];
        const int64_t answer = planned <= 0 && ask > patience ? 1 : planned;
        for (int64_t before = told; before < answer && !told.compare_exchange_weak(before, answer);) {
        }
        return answer;
    }
    static Player* Of(void* context) { return static_cast<Player*>(context); }

    FileInterface interface = {
        this,
        [](void* c, const char*, uint32_t) { return Of(c)->Open(); },
        [](void* c) { return Of(c)->Close(); },
        [](void* c, void* to, int64_t offset, uint32_t n) { return Of(c)->Read(static_cast<uint8_t*>(to), offset, n); },
        [](void* c) { return Of(c)->GetSize(); },
    };
    std::atomic<bool> alive{false}, reading{false};
    std::atomic<uint32_t> opens{0}, closes{0}, reads{0}, asks{0};
    uint32_t runs = 0, patience = 0;
    std::atomic<int64_t> told{0};  // the largest size that the module has heard
};

Player player;
uint8_t heapMemory[kCapacities[0]], unitCopy[kCapacities[0]];

class Script {
public:
    explicit Script(Input& source) : input(source) {
        const uint8_t heap = input.Next();
        capacity = kCapacities[heap & 7];
        capacity -= std::min<size_t>(capacity, heap >> 3 & 15);  // its end stays, its beginning gets out of line
        path = std::initializer_list<const char*>{"a.mp4", "%s%n.m3d", "a", "a.mpd"}.begin()[heap >> 7 ? input.Next() & 3 : 0];
        logLevel = input.Next() % 32 == 4 ? 4 : 0;
    }
    void Run() {
        while (input.HasMore())
            Call(input.Next());
        Destroy(demux);
    }

private:
    void* Heap() const { return heapMemory + sizeof heapMemory - capacity; }

    void Create() {
        if (++handles > kMostHandles)
            return;
        player.Arm();
        live = demux = KivMp4Create(path, player.Interface(), player.memory.Interface(), Heap(), capacity, 7, logLevel);
        tracks = 0;
        active = nullptr;
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
        Require(live && unit && unit->size > 0 && unit->size <= unit->capacity && unit->trackIndex < tracks,
                "a delivered unit lies inside its block");
        active = unit;
        std::memcpy(unitCopy, unit->payload, static_cast<size_t>(unit->size));
        std::memset(unit->payload, 0x5C, static_cast<size_t>(unit->capacity));  // the player may scribble on it
    }

    void Describe(Mp4Demux* handle, int32_t track) {
        CodecInfo info = {};
        const int32_t answer = KivMp4GetTrackInfo(handle, track, &info);
        Require(answer == -1 || (track < static_cast<int32_t>(tracks) && info.kind <= 1 && info.language[3] == 0),
                "only tracks that exist are described");
        Require(KivMp4GetTrackInfo(handle, track, nullptr) == -1, "a null record is refused");
    }

    void Jump(Mp4Demux* handle, uint8_t where) {
        const int64_t hostile[] = {-1, INT64_MIN, INT64_MAX, 0};
        const int32_t answer = KivMp4JumpPTS(handle, where < 4 ? hostile[where] : (where - 4) * int64_t{1500});
        Require(answer >= -2 && answer <= 0, "seeks answer -2, -1 or 0");
    }

    // The operation, and which track, record or handle it is for.
    void Call(uint8_t code) {
        const uint32_t which = code >> 4;
        Mp4Demux* handle = which == 15 ? nullptr : demux;  // one that was destroyed is refused like null
        AccessUnit* unit = which == 14 ? nullptr : &units[which & 3];
        const int32_t track = static_cast<int32_t>(which & 7) - 1;
        switch (code & 15) {
        case 0: which == 15 ? (void)KivMp4Create(nullptr, nullptr, nullptr, nullptr, 0, 0, 0) : Create(); break;
        case 1:
            if (KivMp4Open(handle, which == 14 ? nullptr : &tracks, which == 13 ? nullptr : &duration) == 0)
                Require(tracks > 0, "an open movie has tracks");
            break;
        case 2: Destroy(handle); break;
        case 3: KivMp4EnableTrack(handle, track, which < 8); break;
        case 4: Describe(handle, track); break;
        case 5: Deliver(KivMp4GetNextUnit, handle, unit); break;
        case 6: for (int i = 0; i < 8; ++i) Deliver(KivMp4GetNextUnit, handle, unit); break;
        case 7: Deliver(KivMp4GetNextSyncUnit, handle, unit); break;
        case 8: Deliver(KivMp4GetPrevSyncUnit, handle, unit); break;
        case 9: Jump(handle, input.Next()); break;
        case 10: Require(KivMp4GetNextUnitData(handle, unitCopy) == (live && handle && active ? 0 : -1), "copies"); break;
        case 11: KivMp4Rewind(handle); break;
        case 12: KivMp4InitUnit(handle, unit); break;
        case 13: KivMp4FlushFileReader(handle); break;
        case 14: KivMp4ResumeFileReader(handle); break;
        default:
            Require(KivMp4SetAvailableBW(handle, 1) + KivMp4GetAvailableBW(handle) + KivMp4Unsupported() == -3, "-1 each");
            Require(KivMp4TicksToSeconds(KivMp4TimeToTicks(which * 10000)) == which, "a second has 90000 ticks");
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
    AccessUnit* active = nullptr;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    player.Reset(input);
    Script(input).Run();
    return 0;
}
