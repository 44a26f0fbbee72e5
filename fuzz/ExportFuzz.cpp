// Fuzz target: the exports, called in any order by a script, with a player that misbehaves.
#include "Player.h"

#include <atomic>

using namespace kivmp4::fuzz;

namespace {

constexpr size_t kCapacities[] = {400 << 10, 300 << 10, 240 << 10, 201 << 10, 150 << 10, 9000, 1300, 0};
constexpr const char* kPaths[] = {"a.mp4", "%s%n.m3d", "a", "a.mpd"};

// How the player's file behaves in a run.
struct Plan {
    const uint8_t* bytes;
    size_t size;
    uint32_t fault, faultCall, faultCount;  // what reads from number `faultCall` on do, `faultCount` of them
    uint32_t sizes;                         // mode in the lower bits, then how long until it changes
    uint32_t patience;                      // times that an unknown size may be asked for
};

// One file for all runs, so that a late call of an earlier handle's thread finds it dead.
Plan plan;
std::atomic<bool> alive, reading;  // calls are allowed; one is in `Read`
std::atomic<uint32_t> opens, closes, reads, asks;
std::atomic<int64_t> told;  // the largest size that the module has heard

int32_t Open(void*, const char*, uint32_t) {
    Require(alive && opens == closes, "one file is open at a time");
    opens += plan.sizes < 0xF0;
    return plan.sizes < 0xF0 ? 0 : -1;
}

int32_t Close(void*) {
    Require(alive && ++closes == opens, "an open file is closed once");
    return 0;
}

uint32_t Read(void*, void* destination, int64_t offset, uint32_t count) {
    Require(alive && opens > closes, "reads happen while the file is open");
    Require(!reading.exchange(true), "one read at a time");
    Require(count > 0 && offset >= 0 && offset <= told && count <= told - offset, "reads lie inside the file");
    const uint32_t call = reads++;
    const bool faulty = call >= plan.faultCall && call - plan.faultCall < plan.faultCount;
    const uint32_t answers[] = {count, count - 1, 0, count + 1, UINT32_MAX};  // by fault
    const uint32_t answer = answers[faulty ? plan.fault : 0], filled = std::min(answer, count);
    std::memset(destination, static_cast<int>(call), filled);
    if (static_cast<uint64_t>(offset) < plan.size)
        std::memcpy(destination, plan.bytes + offset,
                    std::min<size_t>(filled, plan.size - static_cast<size_t>(offset)));
    reading = false;
    return answer;
}

int64_t GetSize(void*) {
    Require(alive && opens > closes, "the size is asked while the file is open");
    const int64_t size = static_cast<int64_t>(plan.size);
    const int64_t firstAndRest[][2] = {{size, size},      {0, size},
                                       {INT64_MIN, size}, {size / 2, size},  // by mode
                                       {size, size / 2},  {size, size + 70000},
                                       {size, INT64_MAX}, {0, 0}};
    const int64_t planned = firstAndRest[plan.sizes % 8][asks++ < plan.sizes / 8 % 4 ? 0 : 1];
    const int64_t answer = planned <= 0 && asks > plan.patience ? 1 : planned;
    for (int64_t before = told; before < answer && !told.compare_exchange_weak(before, answer);) {
    }
    return answer;
}

constexpr FileInterface kFile = {nullptr, Open, Close, Read, GetSize};
uint8_t heapMemory[kCapacities[0]], unitCopy[kCapacities[0]];

struct Script {
    Input& input;
    Memory memory{1 << 20, input.Next()};
    uint8_t heap = input.Next(), rest = input.Next();
    size_t capacity = kCapacities[heap % 8] - (heap % 8 < 7 ? heap / 8 % 16 : 0);
    uint8_t* block = heapMemory + sizeof heapMemory - capacity;  // its end stays, its beginning gets out of line
    Mp4Demux* demux = nullptr;                                   // the last one, dead or alive
    Mp4Demux* live = nullptr;
    uint32_t handles = 0, tracks = 0;
    int64_t duration = 0;
    AccessUnit units[4] = {};
    bool keepUnit = heap >= 0x80;  // from handle to handle; then the only one, as it may name another one's new block

    void CheckGone() {
        Require(memory.AllIsBack() && opens == closes, "all blocks and the file are given back");
        alive = false;
    }

    void Create() {
        if (++handles > 3)  // each costs a thread
            return;
        alive = true;
        for (AccessUnit& unit : units)
            unit = keepUnit ? unit : AccessUnit{};
        live = demux = KivMp4Create(kPaths[rest % 4], &kFile, memory.Interface(), block, capacity, 7, rest / 4);
        if (!live)
            CheckGone();
    }

    void Destroy(Mp4Demux* handle) {
        const bool wasLive = live && handle == live;
        Require(KivMp4Destroy(handle) == (wasLive ? 0 : -1), "a handle is destroyed once");
        if (!wasLive)
            return;
        live = nullptr;
        CheckGone();
        std::memset(block, 0xA9, capacity);  // the player's again
    }

    void Deliver(int32_t (*deliver)(Mp4Demux*, AccessUnit*), Mp4Demux* handle, AccessUnit* unit) {
        const int32_t answer = deliver(handle, unit);
        Require(answer >= -1 && answer <= 1, "deliveries answer -1, 0 or 1");
        if (answer != 0)
            return;
        Require(live && unit && unit->size > 0 && unit->size <= unit->capacity, "a delivered unit lies in its block");
        std::memset(unit->payload, 0x5C, static_cast<size_t>(unit->capacity));  // the player may scribble on it
    }

    // The operation, and which track, record or handle it is for. A handle that was destroyed counts as null.
    void Call(uint8_t code) {
        const int32_t which = code >> 4;
        Mp4Demux* handle = which == 15 ? nullptr : demux;
        AccessUnit* unit = which == 14 ? nullptr : &units[keepUnit ? 0 : which % 4];
        const int64_t hostile[] = {-1, INT64_MIN, INT64_MAX, 0};
        CodecInfo info = {};
        int32_t answer = -1;
        switch (code & 15) {
            case 0: Create(); break;
            case 1:
                answer = KivMp4Open(handle, which == 14 ? nullptr : &tracks, which == 13 ? nullptr : &duration);
                break;
            case 2: Destroy(handle); break;
            case 3: answer = KivMp4EnableTrack(handle, which % 8 - 1, which < 8); break;
            case 4: answer = KivMp4GetTrackInfo(handle, which % 8 - 1, which == 14 ? nullptr : &info); break;
            case 5: Deliver(KivMp4GetNextUnit, handle, unit); break;
            case 6:
                for (int i = 0; i < 8; ++i)
                    Deliver(KivMp4GetNextUnit, handle, unit);
                break;
            case 7: Deliver(KivMp4GetNextSyncUnit, handle, unit); break;
            case 8: Deliver(KivMp4GetPrevSyncUnit, handle, unit); break;
            case 9: answer = KivMp4JumpPTS(handle, which < 4 ? hostile[which] : input.Next() * int64_t{1500}); break;
            case 10: answer = KivMp4GetNextUnitData(handle, unitCopy); break;
            case 11: answer = KivMp4Rewind(handle); break;
            case 12: (void)KivMp4InitUnit(handle, unit); break;
            case 13: KivMp4FlushFileReader(handle); break;
            case 14: KivMp4ResumeFileReader(handle); break;
            default:
                Require(KivMp4SetAvailableBW(handle) == -1, "no bandwidth is set");
                Require(KivMp4GetAvailableBW(handle) == -1, "no bandwidth is known");
        }
        Require(answer >= -2 && answer <= 0 && (answer || (live && handle)), "only a live handle succeeds");
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t length) {
    Input input(data, length);
    static uint32_t runs = 0;
    plan = {input.file,
            input.fileSize,
            input.Next() % 5u,
            input.Next() % 32u,
            input.Next() % 32u,
            input.Next(),
            runs++ % 4096 == 0 ? 5000u : 4u};  // a size that never comes costs half a second
    told = reads = asks = 0;
    Script script{input};
    while (input.next != input.end)
        script.Call(input.Next());
    script.Destroy(script.demux);
    return 0;
}
