// The bytes behind Mp4Builder.h.
#include "support/Mp4Builder.h"

#include <algorithm>

namespace kivmp4::test {

Put& Put::Number(uint64_t value, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
        out.push_back(static_cast<uint8_t>(value >> shift));
    return *this;
}

Bytes Hex(std::string_view digits) {
    std::string clean(digits);
    std::erase(clean, ' ');
    Bytes out;
    for (size_t i = 0; i + 1 < clean.size(); i += 2)
        out.push_back(static_cast<uint8_t>(std::stoul(clean.substr(i, 2), nullptr, 16)));
    return out;
}

Bytes Join(const std::vector<Bytes>& parts) {
    Put out;
    for (const Bytes& part : parts)
        out.Raw(part);
    return out;
}

Bytes Box(std::string_view type, const Bytes& content) {
    return Put().U32(content.size() + 8).Text(type).Raw(content);
}

Bytes Box64(std::string_view type, const Bytes& content) {
    return Put().U32(1).Text(type).U64(content.size() + 16).Raw(content);
}

Bytes FullBox(std::string_view type, const Bytes& content, uint8_t version, uint32_t flags) {
    return Box(type, Put().U8(version).U24(flags).Raw(content));
}

Bytes Words(std::string_view type, const Numbers& words, uint8_t version) {
    return FullBox(type, Put().Each(words, 4), version);
}

Bytes AvcC(int lengthSize, const std::vector<Bytes>& spsList, const std::vector<Bytes>& ppsList) {
    Put out;
    out.U8(1).U8(100).U8(0).U8(11).U8(0xFC | static_cast<uint64_t>(lengthSize - 1));
    out.U8(0xE0 | spsList.size()).Raw(Prefixed(2, spsList));
    return out.U8(ppsList.size()).Raw(Prefixed(2, ppsList));
}

Bytes Nal(size_t size, uint32_t seed) {
    Bytes out(size);
    for (size_t i = 0; i < size; i++)
        out[i] = i == 0 ? uint8_t{0x41} : static_cast<uint8_t>(seed * 37 + i * 11 + (i >> 8));
    return out;
}

Bytes Prefixed(int lengthSize, const std::vector<Bytes>& nals) {
    Put out;
    for (const Bytes& nal : nals)
        out.Number(nal.size(), lengthSize).Raw(nal);
    return out;
}

Bytes Started(const std::vector<Bytes>& nals) {
    Put out;
    for (const Bytes& nal : nals)
        out.U32(1).Raw(nal);
    return out;
}

Bytes Descriptor(uint8_t tag, const Bytes& body) {
    Put out;
    out.U8(tag);
    if (body.size() >> 7)
        out.U8(0x80 | body.size() >> 7);
    return out.U8(body.size() & 0x7F).Raw(body);
}

Bytes Esds(const Bytes& config, uint8_t esFlags, uint8_t firstTag) {
    const Bytes fixed = Hex("40 15 001800 0001F400 0001F400");  // buffer 6144 bytes, 128000 bits per second
    Put body;
    body.U16(1).U8(esFlags).Zero(esFlags & 0x80 ? 2 : 0).Text(esFlags & 0x40 ? "\3url" : "").Zero(esFlags & 0x20 ? 2 : 0);
    body.Raw(Descriptor(4, Join({fixed, Descriptor(5, config)}))).Raw(Descriptor(6, {2}));
    return FullBox("esds", Descriptor(firstTag, body));
}

Bytes VideoEntry(std::string_view type, const Bytes& children, uint16_t width, uint16_t height) {
    return Box(type, Put().Zero(6).U16(1).Zero(16).U16(width).U16(height).Zero(50).Raw(children));
}

Bytes AudioEntry(std::string_view type, const Bytes& children, uint16_t version) {
    const size_t extra = version == 1 ? 16 : version == 2 ? 36 : 0;
    return Box(type, Put().Zero(6).U16(1).U16(version).Zero(18 + extra).Raw(children));
}

Bytes Stsd(const std::vector<Bytes>& entries, uint8_t version) {
    return FullBox("stsd", Put().U32(entries.size()).Raw(Join(entries)), version);
}

Track VideoTrack(uint32_t count) {
    Track track{.entry = VideoEntry("avc1", Box("avcC", AvcC(4, {Hex("67 64000B ACB6162720")}, {Hex("68 EE 3C 80")})))};
    for (uint32_t i = 0; i < count; i++)
        track.samples.push_back(Prefixed(4, {Nal(20 + i % 50, i + 1)}));
    return track;
}

Track AudioTrack(uint32_t count) {
    Track track{.entry = AudioEntry("mp4a", Esds(Hex("11 90"))), .timescale = 48000, .delta = 1024};
    for (uint32_t i = 0; i < count; i++)
        track.samples.push_back(Nal(10 + i % 30, 100 + i));
    return track;
}

namespace {

Bytes Pick(const Replace& replace, const std::string& type, const Bytes& standard) {
    const auto found = replace.find(type);
    return found == replace.end() ? standard : found->second;
}

Bytes TrakBox(const Track& t, const std::vector<uint64_t>& chunks, bool wide) {
    const auto pick = [&](const char* type, const Bytes& standard) { return Pick(t.replace, type, standard); };
    const auto count = static_cast<uint32_t>(t.samples.size()), chunkCount = static_cast<uint32_t>(chunks.size());
    Numbers sizes = {0, count}, map = {1, 1, t.samplesPerChunk, 1};
    for (const Bytes& sample : t.samples)
        sizes.push_back(static_cast<uint32_t>(sample.size()));
    if (count % t.samplesPerChunk && chunkCount > 1)
        map = {2, 1, t.samplesPerChunk, 1, chunkCount, count % t.samplesPerChunk, 1};
    const Bytes offsets = FullBox(wide ? "co64" : "stco", Put().U32(chunkCount).Each(chunks, wide ? 8 : 4));
    const Bytes stbl = Join({pick("stsd", Stsd({t.entry})), pick("stts", Words("stts", {1, count, t.delta})),
                             pick("ctts", {}), pick("stss", {}), pick("stsz", Words("stsz", sizes)),
                             pick("stsc", Words("stsc", map)), pick("stco", offsets)});
    const Bytes minf = Box("minf", Join({Box("dinf", {}), pick("stbl", Box("stbl", stbl))}));
    const Bytes mdhd = Words("mdhd", {0, 0, t.timescale, 0, 0x55C40000});  // language "und"
    return Box("trak", Join({pick("tkhd", FullBox("tkhd", Bytes(80), 0, 1)), pick("edts", {}),
                             pick("mdia", Box("mdia", Join({pick("mdhd", mdhd), pick("minf", minf)})))}));
}

Bytes MoovBox(const Movie& movie, const std::vector<std::vector<uint64_t>>& chunks) {
    Bytes content = Pick(movie.replace, "mvhd", Words("mvhd", {0, 0, 1000, 1000}));
    for (size_t i = 0; i < movie.tracks.size(); i++)
        content = Join({content, TrakBox(movie.tracks[i], chunks[i], movie.wide)});
    return Box("moov", content);
}

}  // namespace

Bytes Mp4Builder::Build(const Movie& movie) {
    Put data;
    std::vector<size_t> next(movie.tracks.size());
    std::vector<std::vector<uint64_t>> chunks(movie.tracks.size());
    const auto writeChunk = [&](size_t i) {
        const Track& track = movie.tracks[i];
        const size_t end = std::min(next[i] + track.samplesPerChunk, track.samples.size());
        if (next[i] == end)
            return false;
        chunks[i].push_back(static_cast<const Bytes&>(data).size());
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
    const uint64_t before = head.size() + (movie.moovLast ? 0 : MoovBox(movie, chunks).size());
    for (auto& list : chunks) {
        for (uint64_t& offset : list)
            offset += before + mdat.size() - static_cast<const Bytes&>(data).size();
    }
    const Bytes moov = MoovBox(movie, chunks);
    return movie.moovLast ? Join({head, mdat, moov, movie.back}) : Join({head, moov, mdat, movie.back});
}

}  // namespace kivmp4::test
