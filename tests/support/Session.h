// One handle over a MemoryFile with everything a player owns, checked for leftovers when it closes.
#pragma once

#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/MemoryFile.h"

#include <gtest/gtest.h>

namespace kivmp4::test {

/// A delivered unit with a copy of its bytes.
struct Unit {
    Bytes bytes;
    int64_t pts, dts, duration;
    uint32_t isSync, track;
    bool isVideo;
};

class Session {
public:
    explicit Session(Bytes content, size_t heapCapacity = size_t{4} << 20, size_t heapMisalign = 0)
        : file(std::move(content)), capacity(heapCapacity), misalign(heapMisalign), block(capacity + 2 * kMargin, kCanary) {
        KivMp4InitUnit(nullptr, &unit);
    }
    ~Session() { Close(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // What the player brings; change it before Create.
    MemoryFile file;
    FailingAllocator memory;
    std::string path = "clip.mp4";
    int32_t logLevel = 0;

    Mp4Demux* demux = nullptr;
    uint32_t tracks = 0;
    int64_t duration = 0;
    AccessUnit unit = {};

    bool Create() {
        demux = KivMp4Create(path.c_str(), file.Interface(), memory.Interface(), block.data() + kMargin + misalign,
                             capacity - misalign, 0, logLevel);
        return demux != nullptr;
    }
    /// Creates the handle if there is none yet. @return what KivMp4Open answers; -1 without a handle
    int32_t Open() { return demux || Create() ? KivMp4Open(demux, &tracks, &duration) : -1; }
    /// Enables every track that can be described.
    void EnableAll() {
        for (uint32_t i = 0; i < tracks; i++) {
            CodecInfo info = {};
            if (KivMp4GetTrackInfo(demux, static_cast<int32_t>(i), &info) == 0) {
                EXPECT_EQ(KivMp4EnableTrack(demux, static_cast<int32_t>(i), 1), 0);
            }
        }
    }
    bool Start() {
        const bool open = Open() == 0;
        EnableAll();
        return open;
    }
    Unit Copy() const {
        const uint8_t* p = unit.payload;
        return {Bytes(p, p + unit.size), unit.pts, unit.dts, unit.duration, unit.isSync, unit.trackIndex, unit.isVideo != 0};
    }
    /// Units until `result` is not 0; at most `limit`.
    std::vector<Unit> Deliver(size_t limit = std::numeric_limits<size_t>::max()) {
        std::vector<Unit> units;
        result = 0;
        while (units.size() < limit && (result = KivMp4GetNextUnit(demux, &unit)) == 0)
            units.push_back(Copy());
        return units;
    }
    int32_t result = 0;  // of the last delivery

    void Close() {
        if (demux) {
            EXPECT_EQ(KivMp4Destroy(demux), 0);
        }
        CheckLeftovers();
        demux = nullptr;
    }
    /// For a handle that another creation has closed.
    void CheckLeftovers() {
        EXPECT_EQ(memory.Outstanding(), 0u);
        EXPECT_EQ(file.Opens(), file.Closes());
        EXPECT_TRUE(memory.Violations().empty()) << memory.Violations()[0];
        const std::vector<std::string> broken = file.Violations();
        EXPECT_TRUE(broken.empty()) << broken[0];
        for (size_t i = 0; i < kMargin; i++) {
            if (block[i] != kCanary || block[kMargin + capacity + i] != kCanary)
                ADD_FAILURE() << "write outside the heap block";
        }
    }

private:
    static constexpr size_t kMargin = 64;
    static constexpr uint8_t kCanary = 0xA9;
    size_t capacity, misalign;
    Bytes block;
};

}  // namespace kivmp4::test
