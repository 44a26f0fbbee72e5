// The command's own player: gives the library a file, memory and a heap, and turns its answers into failures in words.
#include "Player.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "Diagnosis.h"
#include "Failure.h"
#include "Text.h"

namespace kivmp4::cli {

namespace {

constexpr uint32_t kFailedRead = static_cast<uint32_t>(-1);  // 0 would mean "ask again"
constexpr size_t kMebibyte = size_t{1} << 20;
constexpr size_t kMemoryLimit = 512 * kMebibyte;
constexpr size_t kHeapBase = 64 * kMebibyte;
constexpr size_t kHeapForUnits = 192 * kMebibyte;
constexpr size_t kBlockHeader = alignof(std::max_align_t);

// Room for the largest unit twice, since it may move while it grows. The system gives only the pages that are touched.
size_t HeapSize(int64_t fileSize) {
    const uint64_t twice = 2 * static_cast<uint64_t>(fileSize);
    return kHeapBase + static_cast<size_t>(std::min<uint64_t>(twice, kHeapForUnits));
}

// The four characters from the last dot on: all that the library compares.
std::string Extension(const std::string& path) {
    const size_t dot = path.rfind('.');
    return dot == std::string::npos ? "" : path.substr(dot, 4);
}

}  // namespace

InputFile::InputFile(const std::string& path) {
    const auto refuse = [&](const std::string& why) -> Failure { return {kCannotRead, Escape(path) + ": " + why}; };
    // Without O_NONBLOCK a named pipe would wait for a writer.
    descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
        throw refuse(std::string("cannot open: ") + std::strerror(errno) + "; check the name and the permissions");
    struct stat status = {};
    const bool known = fstat(descriptor, &status) == 0;
    if (!known || !S_ISREG(status.st_mode)) {
        close(descriptor);
        throw refuse(known && S_ISDIR(status.st_mode) ? "is a directory; name a file in it"
                                                      : "is not a regular file; copy it to one first");
    }
    size = status.st_size;

    functions.context = this;
    functions.open = [](void*, const char*, uint32_t) -> int32_t { return 0; };
    functions.close = [](void*) -> int32_t { return 0; };
    functions.read = Read;
    functions.getSize = [](void* context) { return static_cast<InputFile*>(context)->size; };
}

InputFile::~InputFile() { close(descriptor); }

bool InputFile::Is(const std::string& path) const {
    struct stat other = {}, own = {};
    return stat(path.c_str(), &other) == 0 && fstat(descriptor, &own) == 0 && other.st_dev == own.st_dev &&
           other.st_ino == own.st_ino;
}

uint32_t InputFile::Read(void* context, void* destination, int64_t offset, uint32_t count) {
    auto* self = static_cast<InputFile*>(context);
    uint32_t done = 0;
    while (done < count) {
        const ssize_t got = pread(self->descriptor, static_cast<char*>(destination) + done, count - done,
                                  static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            self->readError.store(errno);
        if (got <= 0)  // refused, or the file has become shorter since it was opened
            return kFailedRead;
        done += static_cast<uint32_t>(got);
    }
    return done;
}

LimitedMemory::LimitedMemory() {
    functions.context = this;
    functions.allocate = Allocate;
    functions.free = Free;
}

void* LimitedMemory::Allocate(void* context, size_t, size_t size) {
    auto* self = static_cast<LimitedMemory*>(context);
    if (size > kMemoryLimit - self->used)
        return nullptr;
    auto* block = static_cast<char*>(std::malloc(kBlockHeader + size));
    if (!block)
        return nullptr;
    std::memcpy(block, &size, sizeof size);
    self->used += size;
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

Player::Player(const std::string& path, int32_t logLevel) : pathOfFile(path), name(Escape(path)), file(path) {
    if (file.Size() == 0)
        CannotOpen("is empty; fetch or copy it again");
    const std::string extension = Extension(path);
    if (extension == ".mpd" || extension == ".ism")
        CannotOpen("names a list of streams; give the MP4 file itself");
    is3D = extension == ".m3d";

    const size_t heapSize = HeapSize(file.Size());
    heap.reset(std::malloc(heapSize));
    if (!heap)
        CannotOpen("not enough memory; close other programs and try again");
    // The escaped name: it may appear in the library's log. Escaping leaves known extensions as they are.
    handle.reset(KivMp4Create(name.c_str(), file.Functions(), memory.Functions(), heap.get(), heapSize, 0, logLevel));
    uint32_t count = 0;
    int64_t hundredMicroseconds = 0;
    if (!handle || KivMp4Open(handle.get(), &count, &hundredMicroseconds) != 0)
        CannotOpen(Why("is not an MP4 file with a track that can be used; --log 4 tells more"));

    if (hundredMicroseconds > 0)
        duration = static_cast<int64_t>(KivMp4TimeToTicks(static_cast<uint64_t>(hundredMicroseconds)));
    tracks.resize(count);
    for (uint32_t index = 0; index < count; index++) {
        CodecInfo info{};
        if (KivMp4GetTrackInfo(handle.get(), static_cast<int32_t>(index), &info) == 0)
            tracks[index] = info;
    }
}

void Player::CannotOpen(const std::string& why) const {
    if (file.ReadError() != 0)
        throw Failure{kCannotRead,
                      About(std::string("cannot read: ") + std::strerror(file.ReadError()) + "; check the disk")};
    throw Failure{kNotUsable, About(why)};
}

std::vector<uint32_t> Player::Enable(std::optional<uint32_t> only) {
    if (only && *only >= TrackCount())
        throw Failure{kUsage, About("has no track " + std::to_string(*only) + "; tracks are numbered 0 to " +
                                    std::to_string(TrackCount() - 1))};
    std::vector<uint32_t> enabled;
    for (uint32_t index = 0; index < TrackCount(); index++) {
        if (!Track(index) || (only && *only != index))
            continue;
        SetEnabled(index, true);
        enabled.push_back(index);
    }
    if (enabled.empty()) {
        const std::string which = only ? "track " + std::to_string(*only) : "every track";
        throw Failure{kNotUsable, About(which + " is of a kind that cannot be delivered; \"kivmp4 info\" lists the"
                                                " tracks")};
    }
    return enabled;
}

void Player::SetEnabled(uint32_t track, bool enable) {
    KivMp4EnableTrack(handle.get(), static_cast<int32_t>(track), enable ? 1 : 0);
}

bool Player::Next(AccessUnit& unit) {
    const int32_t result = KivMp4GetNextUnit(handle.get(), &unit);
    if (result < 0)
        Stopped(unit);
    if (result == KIVMP4_OK)
        delivered++;
    return result == KIVMP4_OK;
}

void Player::RequireUnits() const {
    if (delivered == 0)
        throw Failure{kNotUsable, About(Why("its tracks hold no units"))};
}

void Player::RequireTables() const {
    const Diagnosis diagnosis(pathOfFile);
    if (diagnosis.InFragments())
        throw Failure{kNotUsable, About(diagnosis.Reason(""))};
}

std::string Player::Why(const std::string& otherwise) const { return Diagnosis(pathOfFile).Reason(otherwise); }

void Player::Stopped(const AccessUnit& unit) const {
    const std::string where = "delivery stopped at track " + std::to_string(unit.trackIndex) +
                              (delivered ? " after " + std::to_string(delivered) + " units" : "");
    if (const int error = file.ReadError())
        throw Failure{kCannotRead, About(where + ": " + std::strerror(error) + "; check the disk")};
    throw Failure{kStopped, About(where + ": " + Why("the file is damaged there; \"kivmp4 check --deep\" tells more"))};
}

std::string Player::About(const std::string& what) const { return name + ": " + what; }

}  // namespace kivmp4::cli
