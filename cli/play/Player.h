// The command's own player: gives the library a file, memory and a heap, and turns its answers into failures in words.
#pragma once

#include <KivMp4.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "play/Source.h"
#include "print/Settings.h"

namespace kivmp4::cli {

/// A file's functions for the library, which calls `read` on two threads, one at a time.
class PlayerFile {
public:
    explicit PlayerFile(const inspect::File& from);
    virtual ~PlayerFile() = default;
    PlayerFile(const PlayerFile&) = delete;
    PlayerFile& operator=(const PlayerFile&) = delete;

    FileInterface* Functions() { return &functions; }
    /// What was read so far. To be asked when no call into the library is under way.
    uint64_t Reads() const { return reads.load(); }
    uint64_t Bytes() const { return bytes.load(); }
    /// Reads that do not start where the one before has ended.
    uint64_t Jumps() const { return jumps.load(); }

protected:
    /// One read of the library's. @return bytes copied; less than `count` is a failure
    virtual uint32_t Read(void* destination, int64_t offset, uint32_t count);

private:
    const inspect::File& file;
    std::atomic<uint64_t> reads{0}, bytes{0}, jumps{0};
    std::atomic<int64_t> end{0};  // of the last read
    FileInterface functions{};
};

/// malloc with an upper limit for all blocks together, so that a forged count cannot take the machine's memory.
class LimitedMemory {
public:
    explicit LimitedMemory(size_t limit);
    LimitedMemory(const LimitedMemory&) = delete;
    LimitedMemory& operator=(const LimitedMemory&) = delete;

    ClientAllocator* Functions() { return &functions; }
    size_t Peak() const { return peak; }
    /// Whether a block was refused, so that tables may be missing.
    bool Refused() const { return refused; }

private:
    static void* Allocate(void* context, size_t alignment, size_t size);
    static void Free(void* context, void* block);

    size_t limit;
    size_t used = 0, peak = 0;
    bool refused = false;
    ClientAllocator functions{};
};

/// One open file. Everything that can go wrong is thrown as a Failure.
class Player {
public:
    /// @param file  the file's functions, if they are not those of the source
    Player(const Source& source, const Settings& settings, std::unique_ptr<PlayerFile> file = nullptr);
    /// Tells what the work has cost, if the settings ask for that.
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    Mp4Demux* Handle() { return handle.get(); }
    const Source& Input() const { return source; }
    uint32_t TrackCount() const { return static_cast<uint32_t>(tracks.size()); }
    /// In 90 kHz ticks; 0 when the file does not tell.
    int64_t Duration() const { return duration; }
    /// Whether the name marks a 3D file: levels then carry KIVMP4_LEVEL_3D more.
    bool Is3D() const { return is3D; }
    /// @return null for a track that the library cannot describe, and so not deliver
    const CodecInfo* Track(uint32_t index) const { return tracks[index] ? &*tracks[index] : nullptr; }
    bool IsVideo(uint32_t index) const { return tracks[index] && tracks[index]->kind == KIVMP4_KIND_VIDEO; }

    /// Enables these tracks, or without any every track that can be described. A number that the file does not have, or
    /// no track to enable, is thrown.
    /// @return the tracks enabled, at least one, in ascending order
    std::vector<uint32_t> Enable(const std::vector<uint32_t>& only = {});
    void SetEnabled(uint32_t track, bool enable);
    /// The first video track; its lack is thrown.
    uint32_t FirstVideo() const;
    /// Delivers the next unit into `unit`. @return false at the end
    bool Next(AccessUnit& unit);
    /// Steps to the next key frame, or the one before, and delivers it. @return false when there is none
    bool Step(AccessUnit& unit, bool forward);
    /// Throws when nothing was delivered up to the end.
    void RequireUnits() const;
    /// Throws when the samples lie in fragments, or tables got no memory: the tables then say nothing about the file.
    void RequireTables() const;

private:
    struct FreeBlock {
        void operator()(void* block) const;
    };
    struct EndHandle {
        void operator()(Mp4Demux* demux) const { KivMp4Destroy(demux); }
    };

    // Makes the handle over a heap of this size. @return whether the file opens
    bool Open(size_t size);
    [[noreturn]] void CannotOpen();
    [[noreturn]] void Stopped(const AccessUnit& unit) const;
    void RequireMemory() const;

    // The handle comes last: it ends before what it uses.
    const Source& source;
    const Settings settings;
    std::unique_ptr<PlayerFile> file;
    LimitedMemory memory;
    size_t heapSize;
    std::unique_ptr<void, FreeBlock> heap;
    std::unique_ptr<Mp4Demux, EndHandle> handle;
    std::vector<std::optional<CodecInfo>> tracks;
    int64_t duration = 0;
    uint64_t delivered = 0;
    bool is3D = false;
};

}  // namespace kivmp4::cli
