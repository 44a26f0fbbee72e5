// The command's own player: gives the library a file, memory and a heap, and turns its answers into failures in words.
#include "play/Player.h"

#include <fmt/format.h>
#include <sys/resource.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "play/Diagnosis.h"
#include "print/Text.h"
#include "print/Time.h"

namespace kivmp4::cli {

namespace {

constexpr size_t kMebibyte = size_t{1} << 20;
constexpr size_t kHeapBase = 64 * kMebibyte;
constexpr size_t kAmpleHeap = 512 * kMebibyte;
constexpr size_t kHeapForUnits = 192 * kMebibyte;
constexpr size_t kBlockHeader = alignof(std::max_align_t);

// Room for the largest unit twice, since it may move while it grows. The system gives only the pages that are touched.
size_t HeapSize(uint64_t fileSize) {
    return kHeapBase + static_cast<size_t>(std::min<uint64_t>(2 * fileSize, kHeapForUnits));
}

// The four characters from the last dot on: all that the library compares.
std::string Extension(const std::string& path) {
    const size_t dot = path.rfind('.');
    return dot == std::string::npos ? "" : path.substr(dot, 4);
}

}  // namespace

PlayerFile::PlayerFile(const inspect::File& from) : file(from) {
    functions.context = this;
    functions.open = [](void*, const char*, uint32_t) -> int32_t { return 0; };
    functions.close = [](void*) -> int32_t { return 0; };
    functions.read = [](void* context, void* destination, int64_t offset, uint32_t count) {
        auto* self = static_cast<PlayerFile*>(context);
        self->reads++;
        self->bytes += count;
        if (self->end.exchange(offset + count) != offset)
            self->jumps++;
        // Less than asked for ends the reading; 0 would mean "ask again".
        const uint32_t got = self->Read(destination, offset, count);
        return got == count ? got : KIVMP4_READ_FAILED;
    };
    functions.getSize = [](void* context) {
        return static_cast<int64_t>(static_cast<PlayerFile*>(context)->file.Size());
    };
}

uint32_t PlayerFile::Read(void* destination, int64_t offset, uint32_t count) {
    return static_cast<uint32_t>(file.Read(static_cast<uint64_t>(offset), destination, count));
}

LimitedMemory::LimitedMemory(size_t most) : limit(most) {
    functions.context = this;
    functions.allocate = Allocate;
    functions.free = Free;
}

void* LimitedMemory::Allocate(void* context, size_t, size_t size) {
    auto* self = static_cast<LimitedMemory*>(context);
    auto* block = size <= self->limit - self->used ? static_cast<char*>(std::malloc(kBlockHeader + size)) : nullptr;
    if (!block) {
        self->refused = true;
        return nullptr;
    }
    std::memcpy(block, &size, sizeof size);
    self->used += size;
    self->peak = std::max(self->peak, self->used);
    return block + kBlockHeader;
}

void LimitedMemory::Free(void* context, void* block) {
    char* start = static_cast<char*>(block) - kBlockHeader;
    size_t size;
    std::memcpy(&size, start, sizeof size);
    static_cast<LimitedMemory*>(context)->used -= size;
    std::free(start);
}

void Player::FreeBlock::operator()(void* block) const { std::free(block); }

Player::Player(const Source& input, const Settings& given, std::unique_ptr<PlayerFile> functions)
    : source(input),
      settings(given),
      file(functions ? std::move(functions) : std::make_unique<PlayerFile>(input.File())),
      memory(given.memory),
      heapSize(given.heap ? given.heap : HeapSize(input.File().Size())) {
    const std::string extension = Extension(source.Path());
    if (extension == ".mpd" || extension == ".ism")
        throw source.Refuse(kNotUsable, "names a list of streams", "give the MP4 file itself");
    is3D = extension == ".m3d";

    if (!Open(heapSize))
        CannotOpen();
    for (uint32_t index = 0; index < TrackCount(); index++) {
        CodecInfo info{};
        if (KivMp4GetTrackInfo(handle.get(), static_cast<int32_t>(index), &info) == KIVMP4_OK)
            tracks[index] = info;
    }
}

bool Player::Open(size_t size) {
    handle.reset();
    heap.reset(std::malloc(size));
    if (!heap)
        throw source.Refuse(kLimit, "not enough memory for a heap of " + FormatBytes(size), "--heap takes less");
    // The escaped name: it may appear in the library's log. Escaping leaves known extensions as they are.
    handle.reset(KivMp4Create(source.Name().c_str(), file->Functions(), memory.Functions(), heap.get(), size, 0,
                              settings.logLevel));
    uint32_t count = 0;
    int64_t hundredMicroseconds = 0;
    if (!handle || KivMp4Open(handle.get(), &count, &hundredMicroseconds) != KIVMP4_OK)
        return false;
    if (hundredMicroseconds > 0)
        duration = static_cast<int64_t>(KivMp4TimeToTicks(static_cast<uint64_t>(hundredMicroseconds)));
    tracks.resize(count);
    return true;
}

Player::~Player() {
    if (!settings.stats)
        return;
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    std::fprintf(stderr,
                 "%s: %" PRIu64 " reads, %" PRIu64 " bytes, %" PRIu64
                 " jumps; at most %zu bytes of memory for tables; "
                 "the process: %.3f s of processor time, at most %ld KiB\n",
                 source.Name().c_str(), file->Reads(), file->Bytes(), file->Jumps(), memory.Peak(),
                 seconds(usage.ru_utime) + seconds(usage.ru_stime), usage.ru_maxrss);
}

void Player::RequireMemory() const {
    if (memory.Refused())
        throw source.Refuse(kLimit, "tables need more than the budget of " + FormatBytes(settings.memory),
                            "--max-memory gives more");
}

void Player::CannotOpen() {
    source.RequireReads();
    if (const auto reason = Diagnosis(source).Reason(kNotUsable))
        throw *reason;
    RequireMemory();
    // The library does not tell a full heap from a bad file; with more room it shows which one it was.
    if (Open(kAmpleHeap))
        throw source.Refuse(kLimit, "the library's heap of " + FormatBytes(heapSize) + " is full", "--heap gives more");
    throw source.Refuse(kNotUsable, "no track has a description that can be used",
                        "-vv shows what the library refuses");
}

std::vector<uint32_t> Player::Enable(const std::vector<uint32_t>& only) {
    for (const uint32_t index : only) {
        if (index >= TrackCount())
            throw source.Refuse(kUsage, fmt::format("has no track {}", index),
                                fmt::format("tracks are numbered 0 to {}", TrackCount() - 1));
    }
    std::vector<uint32_t> enabled;
    for (uint32_t index = 0; index < TrackCount(); index++) {
        if (!Track(index) || (!only.empty() && std::find(only.begin(), only.end(), index) == only.end()))
            continue;
        SetEnabled(index, true);
        enabled.push_back(index);
    }
    if (enabled.empty())
        throw source.Refuse(kNotUsable, only.empty() ? "no track can be delivered" : "this track cannot be delivered",
                            "\"kivmp4 info\" lists the tracks");
    return enabled;
}

void Player::SetEnabled(uint32_t track, bool enable) {
    KivMp4EnableTrack(handle.get(), static_cast<int32_t>(track), enable ? 1 : 0);
}

uint32_t Player::FirstVideo() const {
    for (uint32_t index = 0; index < TrackCount(); index++) {
        if (IsVideo(index))
            return index;
    }
    throw source.Refuse(kNotUsable, "has no video track that can be played", "\"kivmp4 info\" lists the tracks");
}

bool Player::Next(AccessUnit& unit) {
    const int32_t result = KivMp4GetNextUnit(handle.get(), &unit);
    if (result < 0)
        Stopped(unit);
    if (result == KIVMP4_OK)
        delivered++;
    return result == KIVMP4_OK;
}

bool Player::Step(AccessUnit& unit, bool forward) {
    const int32_t result =
        forward ? KivMp4GetNextSyncUnit(handle.get(), &unit) : KivMp4GetPrevSyncUnit(handle.get(), &unit);
    if (result < 0)
        Stopped(unit);
    return result == KIVMP4_OK;
}

void Player::RequireUnits() const {
    if (delivered > 0)
        return;
    RequireTables();
    if (const auto reason = Diagnosis(source).Reason(kNotUsable))
        throw *reason;
    throw source.Refuse(kNotUsable, "its tracks hold no units");
}

void Player::RequireTables() const {
    RequireMemory();
    const Diagnosis diagnosis(source);
    if (diagnosis.InFragments())
        throw *diagnosis.Reason(kNotUsable);
}

// How far delivery came, and why it ended there.
void Player::Stopped(const AccessUnit& unit) const {
    source.RequireReads();
    RequireMemory();
    const std::string where = fmt::format("delivery stopped at track {} after {} units", unit.trackIndex, delivered);
    if (auto reason = Diagnosis(source).Reason(kStopped)) {
        reason->message += "; " + where;
        throw *reason;
    }
    throw source.Refuse(kStopped, where + ": the unit is damaged, or larger than the heap of " + FormatBytes(heapSize),
                        "\"kivmp4 check --deep\" tells of damage, --heap gives more room");
}

}  // namespace kivmp4::cli
