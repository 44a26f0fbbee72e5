// A track's look-ups against walks over random and forged tables, entry by entry. Some answers depend on where the
// look-up before stopped, so both are asked the same questions in the same order.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>

#include "container/FileMovie.h"
#include "support/FailingAllocator.h"
#include "support/Mp4Builder.h"

namespace kivmp4::test {
namespace {

// The low 32 bits as a signed number.
int32_t Low(uint64_t value) { return static_cast<int32_t>(static_cast<uint32_t>(value)); }
int32_t Low(int64_t value) { return Low(static_cast<uint64_t>(value)); }
int64_t Quotient(int64_t value, uint32_t divisor) { return divisor ? value / int64_t{divisor} : 0; }
int64_t Cut(float value) { return std::abs(value) < 0x1p63f ? static_cast<int64_t>(value) : 0; }

/// The tables of a video track as words of the file, and Track's look-ups as walks. All that these remember is the
/// entry at which they stopped: its first sample and its time are sums over the entries before it.
struct Walks {
    std::mt19937 random;
    uint32_t most, odds;  // entries of a table; one number in `odds` is forged, then the arrays cannot be had
    Numbers stts, ctts, stsc, sizes, chunks, syncs;
    std::vector<int32_t> timeFirst = {0}, shiftFirst = {0}, runFirst = {0};
    std::vector<int64_t> timeStart = {0};
    std::vector<uint64_t> decodeTimes, times;
    size_t time = 0, shift = 0, run = 0;
    uint32_t timescale;
    float scale;

    uint32_t Below(uint64_t limit) { return static_cast<uint32_t>(random() % limit); }
    uint32_t Pick(const Numbers& values) { return values[Below(values.size())]; }
    uint32_t Wild(uint32_t value) { return Below(odds) ? value : Pick({~0u, 1u << 31, 1u << 30, 0}); }
    explicit Walks(uint32_t seed) : random(seed), most(seed % 16 ? 8 : 2500), odds(seed % 3 ? ~0u : most) {
        timescale = Pick({0, 1, 600, 24000, 44100, 90000, 90000, Below(~0u)});
        scale = timescale ? 90000.0f / static_cast<float>(timescale) : 0;
        const uint32_t odd = seed % 5 ? 3000 : Below(~0u), ordered = Below(3);
        uint32_t chunk = 1, sync = Below(2);
        for (uint32_t left = Below(most); left > 0; --left)
            stts.insert(stts.end(), {Wild(Pick({0, 1, 1, 2, 10})), Pick({0, 1, 512, 3000, 3000, odd})});
        if (seed % 64 == 5)  // the product of the last times and 90000 passes 63 bits, and some 64
            stts.insert(stts.end(), {50000, ~0u - Below(9)});
        for (uint32_t left = Below(most); left > 0; --left)
            ctts.insert(ctts.end(), {Wild(Pick({0, 1, 1, 2, 10})), Pick({0, 1, 6000, 0u - 1500, odd})});
        for (uint32_t left = Below(most) + 1; left > 0; --left, chunk += Below(4))
            stsc.insert(stsc.end(), {Wild(chunk), Wild(Below(4)), 1});
        std::generate_n(std::back_inserter(chunks), Below(2 * chunk), random);
        std::generate_n(std::back_inserter(sizes), Below(4 * most), [&] { return Wild(Below(100)); });
        std::generate_n(std::back_inserter(syncs), Below(most) + 1,
                        [&] { return ordered ? sync += Below(12) : Wild(Below(60)) - 1; });

        for (size_t i = 3; i < stsc.size(); i += 3)
            runFirst.push_back(Low(runFirst.back() + int64_t{(stsc[i] - stsc[i - 3]) * stsc[i - 2]}));
        runFirst.push_back(INT32_MAX);
        int64_t now = 0;
        // A table counts up to the entry with which sample numbers would pass 2^31 - 1.
        for (size_t i = 0; i < stts.size() && uint64_t{stts[i]} + static_cast<uint32_t>(timeFirst.back()) <= INT32_MAX;
             i += 2) {
            timeFirst.push_back(Low(timeFirst.back() + int64_t{stts[i]}));
            timeStart.push_back(timeStart.back() + Low(uint64_t{stts[i]} * stts[i + 1]));
            for (uint32_t k = 0; odds == ~0u && k < stts[i]; ++k, now += stts[i + 1])
                decodeTimes.push_back(static_cast<uint64_t>(
                    Quotient(static_cast<int64_t>(static_cast<uint64_t>(now) * 90000), timescale)));
        }
        times = decodeTimes;
        times.resize(std::max(times.size(), size_t{10} * most));
        for (size_t i = 0, sample = 0;
             i < ctts.size() && uint64_t{ctts[i]} + static_cast<uint32_t>(shiftFirst.back()) <= INT32_MAX; i += 2) {
            shiftFirst.push_back(Low(shiftFirst.back() + int64_t{ctts[i]}));
            for (uint32_t k = 0; odds == ~0u && k < ctts[i]; ++k)
                times[sample++] += static_cast<uint64_t>(Quotient(Low(uint64_t{90000} * ctts[i + 1]), timescale));
        }
    }

    int64_t Ticks(int64_t units) const { return Cut(static_cast<float>(static_cast<double>(units)) * scale); }
    int64_t GetSampleOffset(int32_t sample) {
        if (sample < runFirst[run] || sample > runFirst[run + 1])
            run = 0;
        while (run + 2 < runFirst.size() && sample >= runFirst[run + 1])
            ++run;
        const int64_t perChunk = stsc[3 * run + 1], within = int64_t{sample} - runFirst[run];
        const int64_t before = perChunk ? within % perChunk : within;
        const int64_t chunk = int64_t{static_cast<int32_t>(stsc[3 * run] - 1)} + (perChunk ? within / perChunk : 0);
        int64_t offset = 0;
        for (int64_t i = std::max(sample - before, int64_t{0}); i < sample && i < std::ssize(sizes); ++i)
            offset += sizes[static_cast<size_t>(i)];
        return chunk < 0 || chunk >= std::ssize(chunks) ? 0 : chunks[static_cast<size_t>(chunk)] + offset;
    }
    int64_t GetPrevSyncSample(int32_t sample) const {
        uint32_t found = 0;
        for (size_t i = 0; i < syncs.size() && syncs[i] <= static_cast<uint32_t>(sample); ++i)
            found = syncs[i];
        return static_cast<int32_t>(found);
    }
    static bool Forward(const std::vector<int32_t>& first, size_t& entry, int32_t sample) {
        while (entry + 1 < first.size() && sample >= first[entry + 1])
            ++entry;
        return entry + 1 < first.size();
    }
    uint32_t Delta(size_t entry) const { return stts[2 * entry + 1]; }
    bool FindTime(int32_t sample) {
        while (sample < timeFirst[time])
            --time;
        return Forward(timeFirst, time, sample);
    }
    int32_t Shift(int32_t sample) {
        shift = sample < shiftFirst[shift] ? 0 : shift;
        return Forward(shiftFirst, shift, sample) ? static_cast<int32_t>(ctts[2 * shift + 1]) : 0;
    }
    int64_t GetSampleDuration(int32_t sample) { return FindTime(sample) ? Ticks(Delta(time)) : 0; }
    int64_t GetPresentationTime(int32_t sample) {
        int64_t decodeTime = 0;
        if (FindTime(sample)) {
            const uint32_t within = static_cast<uint32_t>(sample) - static_cast<uint32_t>(timeFirst[time]);
            decodeTime = Ticks(timeStart[time] + Low(uint64_t{within} * Delta(time))) + 9000;
        }
        return decodeTime + Ticks(Shift(sample));
    }
    int64_t GetSampleIndex(int64_t ticks) {
        const int64_t target = timescale ? Cut(static_cast<float>(ticks - 9000) / scale) : 0;
        const bool forward = target >= timeStart[time];
        for (; forward ? time + 1 < timeFirst.size() : time > 0; forward ? ++time : --time) {
            const size_t i = forward ? time : time - 1, bound = forward ? i + 1 : i;
            const int64_t limit = timeStart[bound] + Shift(timeFirst[bound]);
            if (forward ? target <= limit : target >= limit)
                return Low(timeFirst[i] + Quotient(target - timeStart[i], Delta(i)));
        }
        return -1;
    }
    auto SyncPair(uint32_t sample, bool next) const {
        return std::adjacent_find(syncs.begin(), syncs.end(), [=](uint32_t before, uint32_t after) {
            return next ? before <= sample && sample < after : before < sample && sample <= after;
        });
    }
    int64_t TimeOf(uint32_t sample) const { return sample < times.size() ? static_cast<int64_t>(times[sample]) : 0; }
    bool GetJumpSampleIndex(int64_t ticks, int32_t& index, int64_t& jumpTime) const {
        const auto asked = static_cast<uint64_t>(ticks);
        const auto around = [=](uint64_t before, uint64_t after) { return before <= asked && asked < after; };
        const auto first = times.begin(), end = first + std::ssize(decodeTimes);
        const auto found = asked < decodeTimes[1] ? first : std::adjacent_find(first, end, around);
        if (found == end)
            return false;
        uint32_t jump = static_cast<uint32_t>(found - first);
        if (const auto pair = SyncPair(jump, true); found != first && pair != syncs.end())
            jump = jump - pair[0] < pair[1] - jump ? pair[0] : pair[1];
        index = static_cast<int32_t>(jump);
        jumpTime = found != first ? TimeOf(jump) : 0;
        return true;
    }
    bool GetSyncSampleIndex(bool next, int32_t sample, int32_t& index, int64_t& syncTime) const {
        const auto pair = SyncPair(static_cast<uint32_t>(sample), next);
        const uint32_t found = pair != syncs.end() ? pair[next] : next ? syncs.back() : syncs.front();
        index = static_cast<int32_t>(found);
        syncTime = TimeOf(found);
        return pair != syncs.end() || !next;
    }
};

/// A movie over bytes in memory, with the heap that it needs.
struct Loaded : DataSource {
    explicit Loaded(Bytes content) : bytes(std::move(content)) {
        EXPECT_TRUE(CreateModuleHeap(heap.data(), heap.size()));
        auto* root = ModuleNew<Mp4Box>(memory.Interface(), this, int64_t{0}, GetSize(), 0u, 0u);
        movie = ModuleNew<FileMovie>(root, memory.Interface(), 0);
    }
    ~Loaded() {
        ModuleDelete(movie);
        DestroyModuleHeap();
        EXPECT_EQ(memory.Outstanding(), 0u);
    }
    ReadStatus Read(int64_t offset, uint32_t size, void* destination) override {
        if (offset < 0 || static_cast<uint64_t>(offset) + size > bytes.size())
            return ReadStatus::Failed;
        std::memcpy(destination, bytes.data() + offset, size);
        return ReadStatus::Done;
    }
    int64_t GetSize() override { return static_cast<int64_t>(bytes.size()); }

    // Look-ups answer the same without memory for their indices.
    void FillHeap() {
        for (size_t size = heap.size(); size > 0; size /= 2) {
            while (ModuleAllocRaw(8, size)) {
            }
        }
    }

    Bytes bytes, heap = Bytes(size_t{1} << 20);
    FailingAllocator memory;
    FileMovie* movie;
};

template <typename Side>
std::array<int64_t, 3> Ask(Side& side, uint32_t question, int32_t sample, int64_t ticks) {
    int32_t index = -7;
    int64_t found = -7;
    switch (question) {
        case 0: return {side.GetSampleOffset(sample), side.GetPrevSyncSample(sample)};
        case 1: return {side.GetPresentationTime(sample)};
        case 2: return {side.GetSampleDuration(sample)};
        case 3: return {side.GetSampleIndex(ticks)};
        case 4: return {side.GetJumpSampleIndex(ticks, index, found), index, found};
        default: return {side.GetSyncSampleIndex(question == 5, sample, index, found), index, found};
    }
}

TEST(Track, AnswersAsPlainWalksDo) {
    const auto table = [](const char* type, const Numbers& words, size_t width) {
        return FullBox(type, Put().Zero(type[3] == 'z' ? 4 : 0).U32(words.size() / width).Each(words, 4));
    };
    for (uint32_t seed = 0; seed < 3000; ++seed) {
        Walks walks(seed);
        Numbers stss = walks.syncs;
        for (uint32_t& sync : stss)
            ++sync;
        Track video = VideoTrack(0);
        video.timescale = walks.timescale;
        video.replace = {{"edts", Box("edts", Words("elst", {2, 100, ~0u, 1, 1000, 0, 1}))},  // a delay of 9000 ticks
                         {"stts", table("stts", walks.stts, 2)},
                         {"ctts", table("ctts", walks.ctts, 2)},
                         {"stsc", table("stsc", walks.stsc, 3)},
                         {"stco", table("stco", walks.chunks, 1)},
                         {"stsz", table("stsz", walks.sizes, 1)},
                         {"stss", table("stss", stss, 1)}};
        Loaded loaded(Mp4Builder::Build({.tracks = {video}}));
        kivmp4::Track& track = *loaded.movie->GetTrack(0);
        if (seed % 32 == 16)
            loaded.FillHeap();
        const uint32_t range = static_cast<uint32_t>(std::max(walks.decodeTimes.size(), walks.sizes.size())) + 5;
        const uint32_t questions = walks.decodeTimes.size() < 2 ? 4 : 7;
        uint32_t block = 0, sample = 0;
        for (uint32_t count = 0; count < 200; ++count) {
            block = count % 20 ? block : walks.Below(40);  // which way the samples go; one question, or all mixed
            const uint32_t question = (block < 28 ? block / 4 : walks.Below(7)) % questions;
            sample = block % 4 < 2 ? walks.Below(range) : (sample + (block % 4 == 2 ? 1 : range - 1)) % range;
            const int32_t asked = static_cast<int32_t>(walks.Below(40) ? sample : walks.Pick({1u << 30, ~0u >> 1}));
            int64_t ticks = walks.TimeOf(walks.Below(range)) + walks.Below(3) - 1;
            if (walks.Below(4) == 0)
                ticks = int64_t{static_cast<int32_t>(walks.random())} << walks.Below(30) >> walks.Below(30);
            ASSERT_EQ(Ask(track, question, asked, ticks), Ask(walks, question, asked, ticks))
                << "seed " << seed << ", ask " << count << ": question " << question << ", sample " << asked
                << ", time " << ticks << "; timescale " << walks.timescale << "; stts, ctts, stsc, sizes, stss "
                << testing::PrintToString(std::array{walks.stts, walks.ctts, walks.stsc, walks.sizes, stss});
        }
    }
}

}  // namespace
}  // namespace kivmp4::test
