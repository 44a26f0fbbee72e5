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

namespace kivmp4::cli {

/// A regular file, read at offsets.
class InputFile {
public:
    /// Throws a Failure in words when `path` is not a readable file.
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    FileInterface* Functions() { return &functions; }
    int64_t Size() const { return size; }
    /// errno of the first read that the system refused, else 0. Any thread.
    int ReadError() const { return readError.load(); }
    /// Whether `path` leads to this very file.
    bool Is(const std::string& path) const;

private:
    static uint32_t Read(void* context, void* destination, int64_t offset, uint32_t count);

    int descriptor = -1;  // owned
    int64_t size = 0;
    std::atomic<int> readError{0};  // written by the library's reading thread
    FileInterface functions{};
};

/// malloc with an upper limit for all blocks together, so that a forged count cannot take the machine's memory.
class LimitedMemory {
public:
    LimitedMemory();
    LimitedMemory(const LimitedMemory&) = delete;
    LimitedMemory& operator=(const LimitedMemory&) = delete;

    ClientAllocator* Functions() { return &functions; }

private:
    static void* Allocate(void* context, size_t alignment, size_t size);
    static void Free(void* context, void* block);

    size_t used = 0;
    ClientAllocator functions{};
};

/// One open file. Everything that can go wrong is thrown as a Failure.
class Player {
public:
    Player(const std::string& path, int32_t logLevel);
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    Mp4Demux* Handle() { return handle.get(); }
    const InputFile& File() const { return file; }
    const std::string& Path() const { return pathOfFile; }
    uint32_t TrackCount() const { return static_cast<uint32_t>(tracks.size()); }
    /// In 90 kHz ticks; 0 when the file does not tell.
    int64_t Duration() const { return duration; }
    /// Whether the name marks a 3D file: levels then carry 100 more.
    bool Is3D() const { return is3D; }
    /// @return null for a track that the library cannot describe, and so not deliver
    const CodecInfo* Track(uint32_t index) const { return tracks[index] ? &*tracks[index] : nullptr; }

    /// Enables track `only`, or without it every track that can be described.
    /// @return the tracks enabled, at least one
    std::vector<uint32_t> Enable(std::optional<uint32_t> only);
    void SetEnabled(uint32_t track, bool enable);
    /// Delivers the next unit into `unit`. @return false at the end
    bool Next(AccessUnit& unit);
    /// Throws when nothing was delivered up to the end.
    void RequireUnits() const;
    /// Throws when the samples lie in fragments: empty tables then say nothing about the file.
    void RequireTables() const;
    /// Turns the library's -1 into a failure that says how far delivery came.
    [[noreturn]] void Stopped(const AccessUnit& unit) const;
    /// "FILE: what", the file's name escaped.
    std::string About(const std::string& what) const;

private:
    struct FreeBlock {
        void operator()(void* block) const;
    };
    struct EndHandle {
        void operator()(Mp4Demux* demux) const { KivMp4Destroy(demux); }
    };

    [[noreturn]] void CannotOpen(const std::string& why) const;
    // What the command's own reader finds, else `otherwise`.
    std::string Why(const std::string& otherwise) const;

    // The handle comes last: it ends before what it uses.
    std::string pathOfFile;
    std::string name;  // the path, escaped
    InputFile file;
    LimitedMemory memory;
    std::unique_ptr<void, FreeBlock> heap;
    std::unique_ptr<Mp4Demux, EndHandle> handle;
    std::vector<std::optional<CodecInfo>> tracks;
    int64_t duration = 0;
    uint64_t delivered = 0;
    bool is3D = false;
};

}  // namespace kivmp4::cli
