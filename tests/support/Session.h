// One handle over a MemoryFile with everything a player owns, checked for leftovers when it closes.
#pragma once

#include "support/FailingAllocator.h"
#include "support/LogCapture.h"
#include "support/MemoryFile.h"

#include <gtest/gtest.h>
#include <numeric>

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
        : file(std::move(content)), capacity(heapCapacity), heap(kMargin + heapMisalign) {
        block.assign(heap + capacity + kMargin, kCanary);
        KivMp4InitUnit(nullptr, &unit);
    }
    explicit Session(const Movie& movie) : Session(Mp4Builder::Build(movie)) {}
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
    int32_t result = 0;  // of the last delivery

    bool Create() {
        void* memoryBlock = block.data() + heap;
        demux = KivMp4Create(path.c_str(), file.Interface(), memory.Interface(), memoryBlock, capacity, 0, logLevel);
        return demux != nullptr;
    }
    /// Creates the handle if there is none yet. @return what KivMp4Open answers; -1 without a handle
    int32_t Open() { return demux || Create() ? KivMp4Open(demux, &tracks, &duration) : -1; }
    /// Opens and enables every track that can be described.
    bool Start() {
        const bool open = Open() == 0;
        for (uint32_t i = 0; i < tracks; i++) {
            CodecInfo info = {};
            if (KivMp4GetTrackInfo(demux, static_cast<int32_t>(i), &info) == 0)
                Enable(i, true);
        }
        return open;
    }
    void Enable(uint32_t track, bool on) { EXPECT_EQ(KivMp4EnableTrack(demux, static_cast<int32_t>(track), on), 0); }
    /// Units until `result` is not 0; at most `limit`.
    std::vector<Unit> Deliver(size_t limit = std::numeric_limits<size_t>::max()) {
        std::vector<Unit> units;
        result = 0;
        while (units.size() < limit && (result = KivMp4GetNextUnit(demux, &unit)) == 0) {
            const Bytes bytes(unit.payload, unit.payload + unit.size);
            units.push_back(
                {bytes, unit.pts, unit.dts, unit.duration, unit.isSync, unit.trackIndex, unit.isVideo != 0});
        }
        return units;
    }
    /// Every export on a handle in whatever state it is: none may hang, crash or answer what is not documented.
    void Exercise() {
        const auto most = std::numeric_limits<int64_t>::max();
        const auto deliver = [&](auto deliverOne, int limit) {
            int32_t answer = 0;
            while (limit-- > 0 && (answer = deliverOne(demux, &unit)) == 0)
                checksum = std::accumulate(unit.payload, unit.payload + unit.size, checksum);
            EXPECT_TRUE(answer >= -1 && answer <= 1) << answer;
        };
        Start();
        for (int round = 0; round < 2; round++) {  // read ahead, then raw
            deliver(KivMp4GetNextUnit, 20);
            KivMp4Rewind(demux);
            deliver(KivMp4GetNextSyncUnit, 5);
            deliver(KivMp4GetPrevSyncUnit, 5);
            for (int64_t time : {int64_t{0}, int64_t{1}, int64_t{6000}, int64_t{90000}, int64_t{-1}, -most, most}) {
                const int32_t answer = KivMp4JumpPTS(demux, time);
                EXPECT_TRUE(answer >= -2 && answer <= 0) << answer;
                deliver(KivMp4GetNextUnit, 2);
            }
            KivMp4FlushFileReader(demux);
        }
        KivMp4ResumeFileReader(demux);
        deliver(KivMp4GetNextUnit, 2);
    }

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
        EXPECT_EQ(memory.Violations(), std::vector<std::string>());
        EXPECT_EQ(file.Violations(), std::vector<std::string>());
        const auto intact = [](uint8_t byte) { return byte == kCanary; };
        const auto at = [&](size_t offset) { return block.begin() + static_cast<std::ptrdiff_t>(offset); };
        EXPECT_TRUE(std::all_of(block.begin(), at(heap), intact)) << "write in front of the heap block";
        EXPECT_TRUE(std::all_of(at(heap + capacity), block.end(), intact)) << "write past the heap block";
    }

private:
    static constexpr size_t kMargin = 64;
    static constexpr uint8_t kCanary = 0xA9;
    const size_t capacity, heap;  // `heap`: where it begins in `block`
    Bytes block;
    uint32_t checksum = 0;  // so that every delivered byte is read
};

}  // namespace kivmp4::test
