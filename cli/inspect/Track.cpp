// What the boxes of one track say.
#include "inspect/Track.h"

#include <algorithm>

namespace kivmp4::inspect {
namespace {

constexpr size_t kMaxTable = size_t{256} << 20;  // ten hours of sound need 6 MiB
constexpr uint32_t kMaxSamples = 1u << 23;       // 48 hours of sound
constexpr size_t kMaxHeader = 4096;              // of a box with a few fixed fields

// The entries after `skip` bytes and a count; `fieldCount` numbers of 32 bits each.
Table ReadTable(const File& file, const Box* box, uint32_t fieldCount, uint32_t skip = 0) {
    Table table{.box = box, .entrySize = fieldCount * 4};
    if (!box)
        return table;
    const Bytes head = file.ReadBytes(box->Content() + skip, 4, 4);
    if (box->ContentSize() < skip + 4 || head.size() < 4)
        return table;
    table.claimed = static_cast<uint32_t>(ReadNumber(head.data(), 4));
    table.entriesAt = box->Content() + skip + 4;
    const uint64_t room = box->End() - table.entriesAt;
    const uint64_t wanted = std::min(uint64_t{table.claimed} * table.entrySize, room);
    table.tooLarge = wanted > kMaxTable;
    if (!table.tooLarge)
        table.bytes = file.ReadBytes(table.entriesAt, wanted, kMaxTable);
    table.count = static_cast<uint32_t>(table.bytes.size() / table.entrySize);
    return table;
}

Bytes ReadHeader(const File& file, const Box* box) {
    return box ? file.ReadBytes(box->Content(), box->ContentSize(), kMaxHeader) : Bytes();
}

// How the matrix turns the picture; it is of 16.16 numbers a b u, c d v, x y w.
void ReadMatrix(Fields& fields, Track& track) {
    int32_t m[9];
    for (int32_t& value : m)
        value = static_cast<int32_t>(fields.U32());
    const auto sign = [](int32_t value) { return (value > 0) - (value < 0); };
    const int a = sign(m[0]), b = sign(m[1]), c = sign(m[3]), d = sign(m[4]);
    track.mirrored = a * d - b * c < 0;
    if (!b && !c)
        track.rotation = a < 0 && d < 0 ? 180 : 0;
    else if (!a && !d)
        track.rotation = b > 0 ? 90 : 270;
    else
        track.rotation = -1;
}

void ReadTrackHeader(const File& file, const Box& trak, Track& track) {
    const Box* box = trak.Child("tkhd");
    const Bytes bytes = ReadHeader(file, box);
    if (!box)
        return;
    const int wide = box->version == 1 ? 8 : 4;
    Fields fields(bytes);
    track.headerFlags = box->flags;
    fields.Skip(static_cast<size_t>(wide) * 2);
    track.id = fields.U32();
    fields.Skip(4);
    track.headerDuration = fields.Unsigned(wide);
    fields.Skip(16);
    ReadMatrix(fields, track);
    track.width = fields.U32() >> 16;
    track.height = fields.U32() >> 16;
}

void ReadMediaHeader(const File& file, const Box& trak, Track& track) {
    const Box* box = trak.Find("mdia/mdhd");
    const Bytes bytes = ReadHeader(file, box);
    if (box) {
        const int wide = box->version == 1 ? 8 : 4;
        Fields fields(bytes);
        fields.Skip(static_cast<size_t>(wide) * 2);
        track.timescale = fields.U32();
        track.duration = fields.Unsigned(wide);
        const uint16_t language = fields.U16();
        for (int shift : {10, 5, 0})
            track.language += static_cast<char>((language >> shift & 31) + 0x60);
    }
    const Bytes handler = ReadHeader(file, trak.Find("mdia/hdlr"));
    if (handler.size() >= 8)
        track.handler.assign(handler.begin() + 4, handler.begin() + 8);
}

void ReadEdits(const File& file, const Box& trak, Track& track) {
    const Box* box = trak.Find("edts/elst");
    track.hasEdits = box != nullptr;
    const bool wide = box && box->version == 1;
    track.elst = ReadTable(file, box, wide ? 5 : 3);
    for (uint32_t i = 0; i < track.elst.count; i++) {
        const uint8_t* entry = track.elst.bytes.data() + size_t{i} * track.elst.entrySize;
        if (wide)
            track.edits.push_back({ReadNumber(entry, 8), static_cast<int64_t>(ReadNumber(entry + 8, 8)),
                                   static_cast<uint32_t>(ReadNumber(entry + 16, 4))});
        else
            track.edits.push_back({ReadNumber(entry, 4), static_cast<int32_t>(ReadNumber(entry + 4, 4)),
                                   static_cast<uint32_t>(ReadNumber(entry + 8, 4))});
    }
}

void ReadTables(const File& file, const Box& stbl, Track& track) {
    track.stts = ReadTable(file, stbl.Child("stts"), 2);
    track.ctts = ReadTable(file, stbl.Child("ctts"), 2);
    track.stss = ReadTable(file, stbl.Child("stss"), 1);
    track.stsc = ReadTable(file, stbl.Child("stsc"), 3);
    const Box* stco = stbl.Child("stco");
    const Box* co64 = stbl.Child("co64");
    track.stco = stco ? ReadTable(file, stco, 1) : ReadTable(file, co64, 2);
    const Box* stsz = stbl.Child("stsz");
    const Bytes head = ReadHeader(file, stsz);
    if (head.size() >= 4)
        track.constantSize = static_cast<uint32_t>(ReadNumber(head.data(), 4));
    track.stsz = ReadTable(file, stsz, 1, 4);
    track.sampleCount = track.stsz.count;
    // Samples of one size need no table, so a forged count is held against the file; one more shows that it is too much.
    if (track.constantSize)
        track.sampleCount =
            static_cast<uint32_t>(std::min<uint64_t>(track.stsz.claimed, file.Size() / track.constantSize + 1));
    track.limited = track.sampleCount > kMaxSamples;
    track.sampleCount = std::min(track.sampleCount, kMaxSamples);
}

std::string RefusalOf(const Track& track) {
    const Box& trak = *track.box;
    if (!trak.Child("tkhd"))
        return "has no 'tkhd' box";
    if (!track.Enabled())
        return "disabled (tkhd flags " + std::to_string(track.headerFlags) + ")";
    for (const char* needed : {"mdia", "mdia/mdhd", "mdia/minf", "mdia/minf/stbl", "mdia/minf/stbl/stsd"}) {
        if (!trak.Find(needed))
            return "has no '" + std::string(needed).substr(std::string(needed).rfind('/') + 1) + "' box";
    }
    if (track.claimedEntries != 1)
        return std::to_string(track.claimedEntries) + " sample descriptions";
    return track.entries.empty() ? "has no sample description" : RefusalOf(track.entries[0]);
}

}  // namespace

Kind Track::MediaKind() const {
    return handler == "vide"   ? Kind::Video
           : handler == "soun" ? Kind::Audio
           : handler.empty()   ? KindOf(entries)
                               : Kind::Other;
}

Track ReadTrack(const File& file, const Box& trak, uint32_t trakIndex) {
    Track track;
    track.box = &trak;
    track.trakIndex = trakIndex;
    ReadTrackHeader(file, trak, track);
    ReadMediaHeader(file, trak, track);
    ReadEdits(file, trak, track);
    if (const Box* stbl = trak.Find("mdia/minf/stbl")) {
        ReadTables(file, *stbl, track);
        if (const Box* stsd = stbl->Child("stsd")) {
            const Bytes count = file.ReadBytes(stsd->Content(), stsd->ContentSize(), 4);
            track.claimedEntries = count.size() < 4 ? 0 : static_cast<uint32_t>(ReadNumber(count.data(), 4));
            for (const Box* entry : stsd->children)
                track.entries.push_back(ReadSampleEntry(file, *entry));
        }
    }
    track.refusal = RefusalOf(track);
    if (track.refusal.empty())
        track.undelivered = UndeliveredReason(track.entries[0]);
    return track;
}

}  // namespace kivmp4::inspect
