// The bytes behind Mp4Builder.h.
#include "support/Mp4Builder.h"

#include <algorithm>

namespace kivmp4::test {

Put& Put::Number(uint64_t value, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
        out.push_back(static_cast<uint8_t>(value >> shift));
    return *this;
}

BitPut& BitPut::Bits(uint64_t value, int count) {
    while (count-- > 0) {
        if (used == 8) {
            out.push_back(0);
            used = 0;
        }
        out.back() = static_cast<uint8_t>(out.back() | ((value >> count & 1) << (7 - used++)));
    }
    return *this;
}

BitPut& BitPut::Ue(uint64_t value) {
    int length = 0;
    while ((value + 1) >> (length + 1))
        length++;
    return Bits(0, length).Bits(value + 1, length + 1);
}

Bytes BitPut::Finish() {
    Bits(1, 1);
    return out;
}

Bytes Hex(std::string_view digits) {
    std::string clean;
    std::copy_if(digits.begin(), digits.end(), std::back_inserter(clean), [](char c) { return c != ' '; });
    Bytes out;
    for (size_t i = 0; i + 1 < clean.size(); i += 2)
        out.push_back(static_cast<uint8_t>(std::stoul(clean.substr(i, 2), nullptr, 16)));
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

Bytes Words(std::string_view type, const std::vector<uint32_t>& words, uint8_t version) {
    Put content;
    for (uint32_t word : words)
        content.U32(word);
    return FullBox(type, content, version);
}

Bytes SpsNal(const Sps& sps) {
    BitPut bits;
    bits.Ue(0);
    if (sps.profile == 100) {
        bits.Ue(sps.chromaFormat).Bits(0, sps.chromaFormat == 3 ? 1 : 0).Ue(0).Ue(0).Bits(0, 1).Bits(sps.scalingMatrix, 1);
        bits.Bits(0, !sps.scalingMatrix ? 0 : sps.chromaFormat == 3 ? 12 : 8);
    }
    bits.Ue(sps.lengthCode).Ue(sps.pocType);
    if (sps.pocType == 0)
        bits.Ue(sps.lengthCode);
    if (sps.pocType == 1) {
        bits.Bits(0, 1).Ue(3).Ue(4).Ue(sps.pocCycle.size());
        for (uint32_t offset : sps.pocCycle)
            bits.Ue(offset);
    }
    bits.Ue(sps.refs).Bits(0, 1).Ue(sps.widthMbs - 1).Ue(sps.heightMbs - 1).Bits(3, 2).Bits(sps.cropped, 1);
    if (sps.cropped)
        bits.Ue(0).Ue(1).Ue(0).Ue(4);
    const bool vui = sps.aspectIdc >= 0 || sps.maxDecBuffering >= 0;
    bits.Bits(vui, 1);
    if (vui) {
        bits.Bits(sps.aspectIdc >= 0, 1);
        if (sps.aspectIdc >= 0)
            bits.Bits(static_cast<uint64_t>(sps.aspectIdc), 8);
        if (sps.aspectIdc == 255)
            bits.Bits(sps.sarWidth, 16).Bits(sps.sarHeight, 16);
        bits.Bits(0, 7).Bits(sps.maxDecBuffering >= 0, 1);  // nothing up to and with pic_struct_present_flag
        if (sps.maxDecBuffering >= 0)
            bits.Bits(1, 1).Ue(0).Ue(0).Ue(10).Ue(10).Ue(1).Ue(static_cast<uint64_t>(sps.maxDecBuffering));
    }
    return Put().U8(0x67).U8(sps.profile).U8(0).U8(sps.level).Raw(bits.Finish());
}

Bytes AvcC(int lengthSize, const std::vector<Bytes>& spsList, const std::vector<Bytes>& ppsList) {
    Put out;
    out.U8(1).U8(100).U8(0).U8(11).U8(0xFC | static_cast<uint64_t>(lengthSize - 1)).U8(0xE0 | spsList.size());
    for (const Bytes& sps : spsList)
        out.U16(sps.size()).Raw(sps);
    out.U8(ppsList.size());
    for (const Bytes& pps : ppsList)
        out.U16(pps.size()).Raw(pps);
    return out;
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

Bytes Join(const std::vector<Bytes>& parts) {
    Put out;
    for (const Bytes& part : parts)
        out.Raw(part);
    return out;
}

Bytes Descriptor(uint8_t tag, const Bytes& body) {
    Put out;
    out.U8(tag);
    for (int shift = 21; shift > 0; shift -= 7) {
        if (body.size() >> shift)
            out.U8(0x80 | (body.size() >> shift & 0x7F));
    }
    return out.U8(body.size() & 0x7F).Raw(body);
}

Bytes EsdsAround(const Bytes& decoderConfig, uint8_t esFlags, uint8_t firstTag) {
    Put body;
    body.U16(1).U8(esFlags);
    if (esFlags & 0x80)
        body.U16(7);
    if (esFlags & 0x40)
        body.U8(3).Text("url");
    if (esFlags & 0x20)
        body.U16(9);
    body.Raw(Descriptor(4, decoderConfig)).Raw(Descriptor(6, {2}));
    return FullBox("esds", Descriptor(firstTag, body));
}

Bytes Esds(const Bytes& config, uint8_t esFlags, uint8_t firstTag) {
    const Bytes fixed = Hex("40 15 001800 0001F400 0001F400");  // buffer 6144 bytes, 128000 bits per second
    return EsdsAround(Join({fixed, Descriptor(5, config)}), esFlags, firstTag);
}

Bytes VideoEntry(std::string_view type, const Bytes& children, uint16_t width, uint16_t height) {
    Put out;
    out.Zero(6).U16(1).Zero(16).U16(width).U16(height).U32(0x480000).U32(0x480000).Zero(4).U16(1).Zero(32).U16(24).U16(0xFFFF);
    return Box(type, out.Raw(children));
}

Bytes AudioEntry(std::string_view type, const Bytes& children, uint16_t version) {
    Put out;
    out.Zero(6).U16(1).U16(version).Zero(6).U16(2).U16(16).Zero(4).U32(48000u << 16);
    return Box(type, out.Zero(version == 1 ? 16 : version == 2 ? 36 : 0).Raw(children));
}

Bytes Stsd(const std::vector<Bytes>& entries, uint8_t version) {
    return FullBox("stsd", Put().U32(entries.size()).Raw(Join(entries)), version);
}

StblBuilder& StblBuilder::Pairs(std::string_view type, const std::vector<Pair>& pairs, uint8_t version) {
    std::vector<uint32_t> words = {static_cast<uint32_t>(pairs.size())};
    for (const Pair& pair : pairs)
        words.insert(words.end(), {pair.first, pair.second});
    return Add(Words(type, words, version));
}

StblBuilder& StblBuilder::Sizes(const std::vector<uint32_t>& sizes) {
    std::vector<uint32_t> words = {0, static_cast<uint32_t>(sizes.size())};
    words.insert(words.end(), sizes.begin(), sizes.end());
    return Add(Words("stsz", words));
}

StblBuilder& StblBuilder::ChunkMap(const std::vector<Pair>& firstChunkAndSamples) {
    std::vector<uint32_t> words = {static_cast<uint32_t>(firstChunkAndSamples.size())};
    for (const Pair& run : firstChunkAndSamples)
        words.insert(words.end(), {run.first, run.second, 1});
    return Add(Words("stsc", words));
}

StblBuilder& StblBuilder::ChunkOffsets(const std::vector<uint64_t>& offsets) {
    std::vector<uint32_t> words = {static_cast<uint32_t>(offsets.size())};
    for (uint64_t offset : offsets)
        words.push_back(static_cast<uint32_t>(offset));
    return Add(Words("stco", words));
}

StblBuilder& StblBuilder::ChunkOffsets64(const std::vector<uint64_t>& offsets) {
    Put table;
    table.U32(offsets.size());
    for (uint64_t offset : offsets)
        table.U64(offset);
    return Add(FullBox("co64", table));
}

StblBuilder& StblBuilder::SyncSamples(const std::vector<uint32_t>& numbers, uint8_t version) {
    std::vector<uint32_t> words = {static_cast<uint32_t>(numbers.size())};
    words.insert(words.end(), numbers.begin(), numbers.end());
    return Add(Words("stss", words, version));
}

Track VideoTrack(uint32_t count) {
    Track track;
    track.entry = VideoEntry("avc1", Box("avcC", AvcC(4, {SpsNal({})}, {Hex("68 EE 3C 80")})));
    for (uint32_t i = 0; i < count; i++)
        track.samples.push_back(Prefixed(4, {Nal(20 + i % 50, i + 1)}));
    return track;
}

Track AudioTrack(uint32_t count) {
    Track track;
    track.entry = AudioEntry("mp4a", Esds(Hex("11 90")));
    track.timescale = 48000;
    track.delta = 1024;
    for (uint32_t i = 0; i < count; i++)
        track.samples.push_back(Nal(10 + i % 30, 100 + i));
    return track;
}

namespace {

using Replace = std::map<std::string, Bytes>;

Bytes Choose(const Replace& replace, const std::string& type, const Bytes& standard) {
    const auto found = replace.find(type);
    return found == replace.end() ? standard : found->second;
}

// Version, times of creation, timescale and duration as "mvhd" and "mdhd" share them.
Put Header(uint8_t version, uint32_t timescale, int64_t duration) {
    const int width = version == 1 ? 8 : 4;
    const auto value = static_cast<uint64_t>(duration);
    return Put().U8(version).U24(0).Number(0, width).Number(0, width).U32(timescale).Number(value, width);
}

Put Matrix() {
    return Put().U32(0x10000).Zero(12).U32(0x10000).Zero(12).U32(0x40000000);
}

Bytes EditBox(const Track& track) {
    if (track.edits.empty())
        return {};
    Put list;
    const int width = track.editVersion == 1 ? 8 : 4;
    list.U32(track.edits.size());
    for (const Edit& edit : track.edits)
        list.Number(static_cast<uint64_t>(edit.duration), width).Number(static_cast<uint64_t>(edit.mediaTime), width).U32(0x10000);
    return Box("edts", FullBox("elst", list, track.editVersion));
}

Bytes TrakBox(const Track& t, const std::vector<uint64_t>& chunks, size_t index) {
    const auto count = static_cast<uint32_t>(t.samples.size());
    const auto pick = [&](const char* type, const Bytes& standard) { return Choose(t.replace, type, standard); };
    const auto one = [](StblBuilder& built) {  // the box that was added, without the "stbl" around it
        const Bytes box = built;
        return Bytes(box.begin() + 8, box.end());
    };
    std::vector<uint32_t> sizes;
    for (const Bytes& sample : t.samples)
        sizes.push_back(static_cast<uint32_t>(sample.size()));
    StblBuilder size, map, offsets, times, composition, sync;
    t.constantSize ? size.ConstantSize(sizes.at(0), count) : size.Sizes(sizes);
    t.wideOffsets ? offsets.ChunkOffsets64(chunks) : offsets.ChunkOffsets(chunks);
    if (!t.composition.empty())
        composition.CompositionOffsets(t.composition, 1);
    if (!t.sync.empty() || t.hasSync)
        sync.SyncSamples(t.sync);
    Bytes stbl = Box("stbl", Join({pick("stsd", Stsd({t.entry})),
                                   pick("stts", one(times.Times(t.times.empty() ? std::vector<Pair>{{count, t.delta}} : t.times))),
                                   pick("ctts", one(composition)), pick("stss", one(sync)), pick("stsz", one(size)),
                                   pick("stsc", one(map.ChunkMap({{1, t.samplesPerChunk}}))), pick("stco", one(offsets))}));
    const Bytes dinf = Box("dinf", FullBox("dref", Put().U32(1).Raw(FullBox("url ", {}, 0, 1))));
    const Bytes minf = pick("minf", Box("minf", Join({dinf, pick("stbl", stbl)})));
    const Bytes mdhd = pick("mdhd", Box("mdhd", Header(t.headerVersion, t.timescale, t.duration).U16(t.language).U16(0)));
    const bool sound = t.timescale != 90000 && t.sync.empty();
    const Bytes hdlr = FullBox("hdlr", Put().U32(0).Text(sound ? "soun" : "vide").Zero(13));
    Put header;
    header.Zero(8).U32(index + 1).Zero(4).U32(static_cast<uint64_t>(t.duration)).Zero(16).Raw(Matrix()).Zero(8);
    return Box("trak", Join({pick("tkhd", FullBox("tkhd", header, 0, t.flags)), pick("edts", EditBox(t)),
                             pick("mdia", Box("mdia", Join({mdhd, hdlr, minf})))}));
}

Bytes MoovBox(const Movie& movie, const std::vector<std::vector<uint64_t>>& chunks) {
    Put header = Header(movie.headerVersion, movie.timescale, movie.duration);
    header.U32(0x10000).U16(0x100).Zero(10).Raw(Matrix()).Zero(24).U32(movie.tracks.size() + 1);
    Bytes content = Choose(movie.replace, "mvhd", Box("mvhd", header));
    for (size_t i = 0; i < movie.tracks.size(); i++)
        content = Join({content, TrakBox(movie.tracks[i], chunks[i], i)});
    return Choose(movie.replace, "moov", Box("moov", content));
}

}  // namespace

Mp4File Mp4Builder::File(const Movie& movie) {
    Mp4File file;
    file.offsets.resize(movie.tracks.size());
    std::vector<std::vector<uint64_t>> chunks(movie.tracks.size());
    Bytes data;
    const auto writeChunk = [&](size_t i) {
        const Track& track = movie.tracks[i];
        if (file.offsets[i].size() >= track.samples.size())
            return false;
        chunks[i].push_back(data.size());
        for (uint32_t k = 0; k < track.samplesPerChunk && file.offsets[i].size() < track.samples.size(); k++) {
            const Bytes& sample = track.samples[file.offsets[i].size()];
            file.offsets[i].push_back(data.size());
            data.insert(data.end(), sample.begin(), sample.end());
        }
        return true;
    };
    for (size_t i : movie.order)
        writeChunk(i);
    for (bool more = true; more;) {
        more = false;
        for (size_t i = 0; i < movie.tracks.size(); i++)
            more = writeChunk(i) || more;
    }

    Bytes mdat = movie.wideMdat ? Box64("mdat", data) : Box("mdat", data);
    if (movie.openMdat)
        std::fill_n(mdat.begin(), 4, uint8_t{0});
    const Bytes head = Join({movie.front, Choose(movie.replace, "ftyp", Box("ftyp", Put().Text("isom").U32(512).Text("isommp42")))});
    const uint64_t before = head.size() + (movie.moovLast ? 0 : MoovBox(movie, chunks).size());
    const uint64_t base = before + mdat.size() - data.size();
    for (auto* lists : {&chunks, &file.offsets}) {
        for (auto& list : *lists) {
            for (uint64_t& offset : list)
                offset += base;
        }
    }
    const Bytes moov = MoovBox(movie, chunks);
    file.bytes = movie.moovLast ? Join({head, mdat, moov, movie.back}) : Join({head, moov, mdat, movie.back});
    return file;
}

}  // namespace kivmp4::test
