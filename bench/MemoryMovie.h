// A movie made in memory: tiny samples after tables as long as wanted, in the shapes that files have.
#pragma once

#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "KivMp4.h"

namespace kivmp4::bench {

/// The tracks share the samples; the first one is H.264 video, all others are AAC.
struct Shape {
    uint32_t tracks = 1;
    uint32_t samplesPerChunk = 10;  // 0: one chunk for the whole track
    uint32_t keyInterval = 60;      // 1: the sync table lists every sample
    bool reordered = true;          // composition offsets as B pictures need them
};

/// The file and the player's functions that read it. Must outlive the handle.
class MemoryMovie {
public:
    MemoryMovie(const Shape& shape, uint32_t samples);
    /// A whole file, its samples not counted.
    explicit MemoryMovie(std::vector<uint8_t> file) : bytes(std::move(file)) {}
    MemoryMovie(const MemoryMovie&) = delete;
    MemoryMovie& operator=(const MemoryMovie&) = delete;

    FileInterface* Interface() { return &interface; }
    /// Samples of all tracks together.
    uint32_t Samples() const { return sampleCount; }

private:
    std::vector<uint8_t> bytes;
    uint32_t sampleCount = 0;
    FileInterface interface = {
        this,
        [](void*, const char*, uint32_t) { return 0; },
        [](void*) { return 0; },
        [](void* context, void* destination, int64_t offset, uint32_t size) {
            std::memcpy(destination, static_cast<MemoryMovie*>(context)->bytes.data() + offset, size);
            return size;
        },
        [](void* context) { return static_cast<int64_t>(static_cast<MemoryMovie*>(context)->bytes.size()); },
    };
};

/// A player with a movie: opened, all tracks enabled. Ends the program when that fails.
class Player {
public:
    explicit Player(MemoryMovie& movie);
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    Mp4Demux* demux = nullptr;
    AccessUnit unit = {};
    int64_t ticks = 0;  // duration, 90 kHz

private:
    uint8_t* heap = nullptr;  // owned; touched by the module alone, so that its size costs nothing
};

}  // namespace kivmp4::bench
