// Builds MP4 files and single boxes in memory: every box of a track can be replaced, forged or left out.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kivmp4::test {

using Bytes = std::vector<uint8_t>;
using Numbers = std::vector<uint32_t>;

/// Big-endian bytes written one field after the other: `Put().U32(1).Text("moov").Zero(8)`.
class Put {
public:
    Put& U8(uint64_t value) { return Number(value, 1); }
    Put& U16(uint64_t value) { return Number(value, 2); }
    Put& U24(uint64_t value) { return Number(value, 3); }
    Put& U32(uint64_t value) { return Number(value, 4); }
    Put& U64(uint64_t value) { return Number(value, 8); }
    Put& Number(uint64_t value, int bytes) {
        for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
            out.push_back(static_cast<uint8_t>(value >> shift));
        return *this;
    }
    template <class List>
    Put& Each(const List& values, int bytes) {
        for (auto value : values)
            Number(value, bytes);
        return *this;
    }
    Put& Zero(size_t count) { return Raw(Bytes(count)); }
    Put& Text(std::string_view text) { return Raw(Bytes(text.begin(), text.end())); }
    Put& Raw(const Bytes& bytes) { return Each(bytes, 1); }
    operator const Bytes&() const { return out; }

private:
    Bytes out;
};

/// A byte string from hexadecimal digits; blanks are skipped.
inline Bytes Hex(std::string_view digits) {
    std::string clean(digits);
    std::erase(clean, ' ');
    Bytes out;
    for (size_t i = 0; i + 1 < clean.size(); i += 2)
        out.push_back(static_cast<uint8_t>(std::stoul(clean.substr(i, 2), nullptr, 16)));
    return out;
}

/// Each part, after its length where `lengthSize` is not 0.
inline Bytes Prefixed(int lengthSize, const std::vector<Bytes>& parts) {
    Put out;
    for (const Bytes& part : parts)
        out.Number(part.size(), lengthSize).Raw(part);
    return out;
}
inline Bytes Join(const std::vector<Bytes>& parts) { return Prefixed(0, parts); }

/// What delivery makes of a sample's NAL units: each one after 00 00 00 01.
inline Bytes Started(const std::vector<Bytes>& nals) {
    Put out;
    for (const Bytes& nal : nals)
        out.U32(1).Raw(nal);
    return out;
}

/// A NAL unit of `size` bytes that differ by `seed`; the first one is a slice header byte.
inline Bytes Nal(size_t size, uint32_t seed = 1) {
    Bytes out(size, 0x41);
    for (size_t i = 1; i < size; i++)
        out[i] = static_cast<uint8_t>(seed * 37 + i * 11 + (i >> 8));
    return out;
}

inline Bytes Box(std::string_view type, const Bytes& content) {
    return Put().U32(content.size() + 8).Text(type).Raw(content);
}
/// The same with its size in 64 bits after a size field of 1.
inline Bytes Box64(std::string_view type, const Bytes& content) {
    return Put().U32(1).Text(type).U64(content.size() + 16).Raw(content);
}
inline Bytes FullBox(std::string_view type, const Bytes& content, uint8_t version = 0, uint32_t flags = 0) {
    return Box(type, Put().U8(version).U24(flags).Raw(content));
}
/// A box of 32-bit words after version and flags: tables and headers, honest and forged.
inline Bytes Words(std::string_view type, const Numbers& words, uint8_t version = 0) {
    return FullBox(type, Put().Each(words, 4), version);
}

/// An AVCDecoderConfigurationRecord.
inline Bytes AvcC(int lengthSize, const std::vector<Bytes>& spsList, const std::vector<Bytes>& ppsList) {
    Put out;
    out.Raw(Hex("0164000B")).U8(0xFC | static_cast<uint64_t>(lengthSize - 1));
    return out.U8(0xE0 | spsList.size()).Raw(Prefixed(2, spsList)).U8(ppsList.size()).Raw(Prefixed(2, ppsList));
}

/// An MPEG-4 descriptor of less than 16 KiB.
inline Bytes Descriptor(uint8_t tag, const Bytes& body) {
    Put out;
    out.U8(tag);
    if (body.size() >> 7)
        out.U8(0x80 | body.size() >> 7);
    return out.U8(body.size() & 0x7F).Raw(body);
}
/// "esds" around a DecoderSpecificInfo. `esFlags` (0x80, 0x40, 0x20) add the fields that they announce.
inline Bytes Esds(const Bytes& config, uint8_t esFlags = 0, uint8_t firstTag = 3) {
    const Bytes fixed = Hex("40 15 001800 0001F400 0001F400");  // buffer 6144 bytes, 128000 bits per second
    Put body;
    body.U16(1)
        .U8(esFlags)
        .Zero(esFlags & 0x80 ? 2 : 0)
        .Text(esFlags & 0x40 ? "\3url" : "")
        .Zero(esFlags & 0x20 ? 2 : 0);
    body.Raw(Descriptor(4, Join({fixed, Descriptor(5, config)}))).Raw(Descriptor(6, {2}));
    return FullBox("esds", Descriptor(firstTag, body));
}

inline Bytes VideoEntry(std::string_view type, const Bytes& children, uint16_t width = 176, uint16_t height = 144) {
    return Box(type, Put().Zero(6).U16(1).Zero(16).U16(width).U16(height).Zero(50).Raw(children));
}
/// Sound entry of version 0, 1 or 2.
inline Bytes AudioEntry(std::string_view type, const Bytes& children, uint16_t version = 0) {
    const size_t extra = version == 1 ? 16 : version == 2 ? 36 : 0;
    return Box(type, Put().Zero(6).U16(1).U16(version).Zero(18 + extra).Raw(children));
}
inline Bytes Stsd(const std::vector<Bytes>& entries, uint8_t version = 0) {
    return FullBox("stsd", Put().U32(entries.size()).Raw(Join(entries)), version);
}

/// Whole boxes by type; empty bytes leave the box out.
struct Replace : std::map<std::string, Bytes> {
    using map::map;
    Bytes Pick(const std::string& type, const Bytes& standard) const {
        const auto found = find(type);
        return found == end() ? standard : found->second;
    }
};

struct Track {
    Bytes entry = {};                 // sample entry box
    std::vector<Bytes> samples = {};  // as they lie in the file
    uint32_t timescale = 90000, delta = 3000, samplesPerChunk = 1;
    Replace replace = {};  // also adds "ctts", "stss" and "edts"

    Bytes Trak(const std::vector<uint64_t>& chunks, bool wide) const {
        const auto count = static_cast<uint32_t>(samples.size()), chunkCount = static_cast<uint32_t>(chunks.size());
        Numbers sizes = {0, count}, map = {1, 1, samplesPerChunk, 1};
        for (const Bytes& sample : samples)
            sizes.push_back(static_cast<uint32_t>(sample.size()));
        if (count % samplesPerChunk && chunkCount > 1)
            map = {2, 1, samplesPerChunk, 1, chunkCount, count % samplesPerChunk, 1};
        const Bytes offsets = FullBox(wide ? "co64" : "stco", Put().U32(chunkCount).Each(chunks, wide ? 8 : 4));
        const Bytes stbl =
            Join({replace.Pick("stsd", Stsd({entry})), replace.Pick("stts", Words("stts", {1, count, delta})),
                  replace.Pick("ctts", {}), replace.Pick("stss", {}), replace.Pick("stsz", Words("stsz", sizes)),
                  replace.Pick("stsc", Words("stsc", map)), replace.Pick("stco", offsets)});
        const Bytes minf =
            Box("minf", Join({replace.Pick("dinf", Box("dinf", {})), replace.Pick("stbl", Box("stbl", stbl))}));
        const Bytes mdhd = Words("mdhd", {0, 0, timescale, 0, 0x55C40000});  // language "und"
        const Bytes mdia = Box("mdia", Join({replace.Pick("mdhd", mdhd), replace.Pick("minf", minf)}));
        const Bytes tkhd = FullBox("tkhd", Bytes(80), 0, 1);
        return Box("trak", Join({replace.Pick("tkhd", tkhd), replace.Pick("edts", {}), replace.Pick("mdia", mdia)}));
    }
};

/// H.264 at 90 kHz, 3000 ticks a sample, one NAL unit a sample.
inline Track VideoTrack(uint32_t count = 3) {
    const Bytes record = AvcC(4, {Hex("67 64000B ACB6162720")}, {Hex("68 EE 3C 80")});
    Track track{.entry = VideoEntry("avc1", Box("avcC", record))};
    for (uint32_t i = 0; i < count; i++)
        track.samples.push_back(Prefixed(4, {Nal(20 + i % 50, i + 1)}));
    return track;
}

/// AAC at 48 kHz, 1024 a sample.
inline Track AudioTrack(uint32_t count = 4) {
    Track track{.entry = AudioEntry("mp4a", Esds(Hex("11 90"))), .timescale = 48000, .delta = 1024};
    for (uint32_t i = 0; i < count; i++)
        track.samples.push_back(Nal(10 + i % 30, 100 + i));
    return track;
}

/// One second, counted in thousandths.
struct Movie {
    std::vector<Track> tracks = {};
    std::vector<size_t> order = {};       // track of each chunk in file order; then the others' chunks in turn
    bool moovLast = false, wide = false;  // wide: chunk offsets of 64 bits
    Bytes (*mdatBox)(std::string_view type, const Bytes& content) = Box;
    Replace replace = {};
    Bytes front = {}, back = {};  // boxes before and after all others

    Bytes Moov(const std::vector<std::vector<uint64_t>>& chunks) const {
        Put content;
        content.Raw(replace.Pick("mvhd", Words("mvhd", {0, 0, 1000, 1000})));
        for (size_t i = 0; i < tracks.size(); i++)
            content.Raw(tracks[i].Trak(chunks[i], wide));
        return Box("moov", content);
    }
};

struct Mp4Builder {
    static Bytes Build(const Movie& movie) {
        Put data;
        const auto size = [&] { return static_cast<const Bytes&>(data).size(); };
        std::vector<size_t> next(movie.tracks.size());
        std::vector<std::vector<uint64_t>> chunks(movie.tracks.size());
        const auto writeChunk = [&](size_t i) {
            const Track& track = movie.tracks[i];
            const size_t end = std::min(next[i] + track.samplesPerChunk, track.samples.size());
            if (next[i] == end)
                return false;
            chunks[i].push_back(size());
            while (next[i] < end)
                data.Raw(track.samples[next[i]++]);
            return true;
        };
        for (size_t i : movie.order)
            writeChunk(i);
        for (bool more = true; more;) {
            more = false;
            for (size_t i = 0; i < movie.tracks.size(); i++)
                more = writeChunk(i) || more;
        }
        const Bytes mdat = movie.mdatBox("mdat", data);
        const Bytes head = Join({movie.front, Box("ftyp", Put().Text("isom").U32(512).Text("isommp42"))});
        const uint64_t before = head.size() + (movie.moovLast ? 0 : movie.Moov(chunks).size());
        for (auto& list : chunks) {
            for (uint64_t& offset : list)
                offset += before + mdat.size() - size();
        }
        const Bytes moov = movie.Moov(chunks);
        return movie.moovLast ? Join({head, mdat, moov, movie.back}) : Join({head, moov, mdat, movie.back});
    }
};

}  // namespace kivmp4::test
