// Building the movie, and playing it.
#include "MemoryMovie.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "support/Mp4Builder.h"

namespace kivmp4::bench {
namespace {

using namespace test;

constexpr uint32_t kTimescale = 30000, kDelta = 1000;
constexpr size_t kHeapSize = size_t{128} << 20;

// Version and flags 0, a count, and that many entries of `width` words.
Bytes Table(std::string_view type, const Numbers& words, size_t width) {
    return FullBox(type, Put().U32(words.size() / width).Each(words, 4));
}

// Sizes that differ, with room for a NAL length and header; twelve bytes on average.
constexpr uint32_t kMeanSize = 12;
uint32_t SizeOf(uint32_t sample) { return 8 + sample * 7 % 9; }

// A track whose tables stand for `count` samples, which lie in the media already.
Track LongTrack(const Shape& shape, uint32_t count, bool video) {
    Numbers syncs, shifts, sizes = {0, count};
    for (uint32_t sample = 0; video && sample < count; sample += shape.keyInterval)
        syncs.push_back(sample + 1);
    for (uint32_t sample = 0; video && shape.reordered && sample < count; ++sample)
        shifts.insert(shifts.end(), {1, sample % 3 == 0 ? 2 * kDelta : sample % 3 == 1 ? kDelta : 0});
    for (uint32_t sample = 0; sample < count; ++sample)
        sizes.push_back(SizeOf(sample));
    const uint32_t half = count / 2;
    const Bytes avcC = Hex("0142001E FFE10008 6742001E DA0B1390 01000468 CE3880");
    const Bytes esds = Hex("0316000100 041140150018000001F4000001F400 05021210");
    Track track{.entry = video ? VideoEntry("avc1", Box("avcC", avcC)) : AudioEntry("mp4a", FullBox("esds", esds))};
    track.replace = {
        {"stts", Table("stts", {half, kDelta, count - half - 1, kDelta, 1, kDelta}, 2)},
        {"ctts", shifts.empty() ? Bytes() : Table("ctts", shifts, 2)},
        {"stss", video ? Table("stss", syncs, 1) : Bytes()},
        {"stsz", Words("stsz", sizes)},
        {"stsc", Table("stsc", {1, shape.samplesPerChunk ? shape.samplesPerChunk : count, 1}, 3)},
        {"mdhd", Words("mdhd", {0, 0, kTimescale, count * kDelta, 0x55C40000})},
        {"dinf", {}},
    };
    return track;
}

}  // namespace

MemoryMovie::MemoryMovie(const Shape& shape, uint32_t samples) {
    const uint32_t count = samples / shape.tracks;  // of each track
    const uint32_t perChunk = shape.samplesPerChunk ? shape.samplesPerChunk : count;
    sampleCount = count * shape.tracks;
    std::vector<std::vector<uint64_t>> chunks(shape.tracks);
    Bytes media;
    media.reserve(size_t{sampleCount} * kMeanSize);
    for (uint32_t first = 0; first < count; first += perChunk) {
        for (std::vector<uint64_t>& offsets : chunks) {
            offsets.push_back(media.size());
            for (uint32_t sample = first; sample < std::min(first + perChunk, count); ++sample) {
                const uint32_t size = SizeOf(sample);
                const Bytes length = Put().U32(size - 4);
                media.insert(media.end(), length.begin(), length.end());
                media.push_back(sample % shape.keyInterval ? 0x41 : 0x65);
                media.insert(media.end(), size - 5, static_cast<uint8_t>(sample));
            }
        }
    }
    Movie movie;
    movie.replace["mvhd"] = FullBox("mvhd", Put().U32(0).U32(0).U32(kTimescale).U32(count * kDelta).Zero(80));
    for (uint32_t track = 0; track < shape.tracks; ++track)
        movie.tracks.push_back(LongTrack(shape, count, track == 0));
    const Bytes ftyp = Box("ftyp", Put().Text("isom").U32(512).Text("isom"));
    const size_t before = ftyp.size() + movie.Moov(chunks).size() + 8;
    for (std::vector<uint64_t>& offsets : chunks) {
        for (uint64_t& offset : offsets)
            offset += before;
    }
    bytes = Join({ftyp, movie.Moov(chunks), Box("mdat", media)});
}

Player::Player(MemoryMovie& movie) : heap(static_cast<uint8_t*>(std::malloc(kHeapSize))) {
    static const ClientAllocator memory = {
        nullptr,
        [](void*, size_t, size_t size) { return std::malloc(size); },
        [](void*, void* block) { std::free(block); },
    };
    uint32_t tracks = 0;
    int64_t duration = 0;
    demux = KivMp4Create("movie.mp4", movie.Interface(), &memory, heap, kHeapSize, 0, KIVMP4_LOG_NONE);
    bool ready = demux && KivMp4Open(demux, &tracks, &duration) == KIVMP4_OK;
    for (uint32_t track = 0; track < tracks; ++track) {
        CodecInfo info = {};
        const auto index = static_cast<int32_t>(track);
        ready = ready && KivMp4GetTrackInfo(demux, index, &info) == KIVMP4_OK &&
                KivMp4EnableTrack(demux, index, 1) == KIVMP4_OK;
    }
    if (!ready) {
        std::fprintf(stderr, "the movie in memory does not open\n");
        std::exit(1);
    }
    ticks = static_cast<int64_t>(KivMp4TimeToTicks(static_cast<uint64_t>(duration)));
    KivMp4InitUnit(demux, &unit);
}

Player::~Player() {
    KivMp4Destroy(demux);
    std::free(heap);
}

}  // namespace kivmp4::bench
