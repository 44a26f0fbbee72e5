// Building the movie, and playing it.
#include "MemoryMovie.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace kivmp4::bench {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kTimescale = 30000, kDelta = 1000;
constexpr size_t kHeapSize = size_t{64} << 20;

void Put32(Bytes& out, uint32_t value) {
    const uint8_t bytes[] = {static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
                             static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
    out.insert(out.end(), bytes, bytes + 4);
}

Bytes Box(std::string_view type, const std::vector<Bytes>& contents) {
    size_t size = 8;
    for (const Bytes& content : contents)
        size += content.size();
    Bytes out;
    out.reserve(size);
    Put32(out, static_cast<uint32_t>(size));
    out.insert(out.end(), type.begin(), type.end());
    for (const Bytes& content : contents)
        out.insert(out.end(), content.begin(), content.end());
    return out;
}

Bytes Words(const std::vector<uint32_t>& words) {
    Bytes out;
    out.reserve(words.size() * 4);
    for (const uint32_t word : words)
        Put32(out, word);
    return out;
}

// Version and flags 0, a count, and that many entries of `width` words.
Bytes Table(std::string_view type, const std::vector<uint32_t>& words, size_t width) {
    return Box(type, {Words({0, static_cast<uint32_t>(words.size() / width)}), Words(words)});
}

Bytes VideoEntry() {
    Bytes fields(78);
    fields[7] = 1;
    fields[25] = 176;
    fields[27] = 144;
    const Bytes config = {1,    66,   0,    30,   0xFF, 0xE1, 0, 8,    0x67, 66,   0,   30,
                          0xDA, 0x0B, 0x13, 0x90, 1,    0,    4, 0x68, 0xCE, 0x38, 0x80};
    return Box("avc1", {fields, Box("avcC", {config})});
}

Bytes AudioEntry() {
    Bytes fields(28);
    fields[7] = 1;
    const Bytes descriptors = {3, 22, 0,    1, 0, 4, 17,   0x40, 0x15, 0, 0x18, 0,
                               0, 1,  0xF4, 0, 0, 1, 0xF4, 0,    5,    2, 0x12, 0x10};
    return Box("mp4a", {fields, Box("esds", {Words({0}), descriptors})});
}

// Sizes that differ, with room for a NAL length and header; twelve bytes on average.
constexpr uint32_t kMeanSize = 12;
uint32_t SizeOf(uint32_t sample) { return 8 + sample * 7 % 9; }

struct TrackTables {
    std::vector<uint32_t> sizes, offsets;
};

Bytes Trak(const Shape& shape, const TrackTables& tables, bool video) {
    const auto count = static_cast<uint32_t>(tables.sizes.size());
    std::vector<uint32_t> syncs, shifts;
    for (uint32_t sample = 0; video && sample < count; sample += shape.keyInterval)
        syncs.push_back(sample + 1);
    for (uint32_t sample = 0; video && shape.reordered && sample < count; ++sample)
        shifts.insert(shifts.end(), {1, sample % 3 == 0 ? 2 * kDelta : sample % 3 == 1 ? kDelta : 0});
    const uint32_t half = count / 2;
    const Bytes stbl = Box("stbl", {
                                       Box("stsd", {Words({0, 1}), video ? VideoEntry() : AudioEntry()}),
                                       Table("stts", {half, kDelta, count - half - 1, kDelta, 1, kDelta}, 2),
                                       shifts.empty() ? Bytes() : Table("ctts", shifts, 2),
                                       video ? Table("stss", syncs, 1) : Bytes(),
                                       Box("stsz", {Words({0, 0, count}), Words(tables.sizes)}),
                                       Table("stsc", {1, shape.samplesPerChunk ? shape.samplesPerChunk : count, 1}, 3),
                                       Table("stco", tables.offsets, 1),
                                   });
    Bytes header(84);
    header[3] = 1;  // enabled
    const Bytes mdhd = Words({0, 0, 0, kTimescale, count * kDelta, 0x55C40000});
    return Box("trak", {Box("tkhd", {header}), Box("mdia", {Box("mdhd", {mdhd}), Box("minf", {stbl})})});
}

Bytes Moov(const Shape& shape, const std::vector<TrackTables>& tracks) {
    const auto count = static_cast<uint32_t>(tracks[0].sizes.size());
    std::vector<Bytes> boxes = {Box("mvhd", {Words({0, 0, 0, kTimescale, count * kDelta}), Bytes(80)})};
    for (size_t track = 0; track < tracks.size(); ++track)
        boxes.push_back(Trak(shape, tracks[track], track == 0));
    return Box("moov", boxes);
}

}  // namespace

MemoryMovie::MemoryMovie(const Shape& shape, uint32_t samples) {
    const uint32_t count = samples / shape.tracks;  // of each track
    const uint32_t perChunk = shape.samplesPerChunk ? shape.samplesPerChunk : count;
    sampleCount = count * shape.tracks;
    std::vector<TrackTables> tracks(shape.tracks);
    for (TrackTables& track : tracks)
        track.sizes.reserve(count);
    Bytes media;
    media.reserve(size_t{sampleCount} * kMeanSize);
    for (uint32_t first = 0; first < count; first += perChunk) {
        for (TrackTables& track : tracks) {
            track.offsets.push_back(static_cast<uint32_t>(media.size()));
            for (uint32_t sample = first; sample < std::min(first + perChunk, count); ++sample) {
                const uint32_t size = SizeOf(sample);
                track.sizes.push_back(size);
                Put32(media, size - 4);
                media.push_back(sample % shape.keyInterval ? 0x41 : 0x65);
                media.insert(media.end(), size - 5, static_cast<uint8_t>(sample));
            }
        }
    }
    const Bytes ftyp = Box("ftyp", {Words({0x69736F6D, 512, 0x69736F6D})});
    const size_t before = ftyp.size() + Moov(shape, tracks).size() + 8;
    for (TrackTables& track : tracks) {
        for (uint32_t& offset : track.offsets)
            offset += static_cast<uint32_t>(before);
    }
    bytes = ftyp;
    for (const Bytes& box : {Moov(shape, tracks), Box("mdat", {media})})
        bytes.insert(bytes.end(), box.begin(), box.end());

    interface = {
        this,
        [](void*, const char*, uint32_t) { return 0; },
        [](void*) { return 0; },
        [](void* context, void* destination, int64_t offset, uint32_t size) {
            std::memcpy(destination, static_cast<MemoryMovie*>(context)->bytes.data() + offset, size);
            return size;
        },
        [](void* context) { return static_cast<int64_t>(static_cast<MemoryMovie*>(context)->bytes.size()); },
    };
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
