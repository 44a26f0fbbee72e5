// Reads the entries of "stsd".
#include "inspect/SampleEntry.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace kivmp4::inspect {
namespace {

constexpr size_t kMaxEntry = size_t{1} << 20;  // pictures as covers are far smaller

bool IsOneOf(const std::string& type, std::initializer_list<std::string_view> list) {
    return std::find(list.begin(), list.end(), type) != list.end();
}

bool IsVideoType(const std::string& type) {
    return IsOneOf(type, {"avc1", "jvt1", "mp4v", "encv", "hvc1", "hev1", "av01", "vp09", "vp08", "rle ", "I420",
                          "YUY2", "avc2", "avc3", "avc4", "dvh1", "dvhe"});
}

bool IsAudioType(const std::string& type) {
    return IsOneOf(type, {"mp4a", "enca", "lpcm", "alaw", "ulaw", "samr", "samw", "ac-3", "ec-3", "Opus", "fLaC",
                          "alac", "sowt", "twos", "in24", "in32", "fl32", "fl64"});
}

// One list of parameter sets: `count` of them, each after its length in 16 bits.
bool ReadSets(Fields& fields, uint32_t count, std::vector<Bytes>& sets) {
    for (; count && !fields.Failed(); count--)
        sets.push_back(fields.Take(fields.U16()));
    return !fields.Failed();
}

void ReadAvcC(SampleEntry& entry) {
    Fields fields(entry.avcC);
    fields.Skip(4);
    entry.nalLengthSize = (fields.U8() & 3u) + 1;
    entry.avcCBroken = !ReadSets(fields, fields.U8() & 31u, entry.sps) || !ReadSets(fields, fields.U8(), entry.pps);
    if (entry.avcC.size() < 7)
        entry.nalLengthSize = 0;
}

// The body of the descriptor at the front of `fields`, or nothing when it runs past their end.
Bytes ReadDescriptor(Fields& fields) {
    fields.Skip(1);  // tag
    size_t size = 0;
    for (uint8_t byte = 0x80; byte & 0x80 && !fields.Failed();) {
        byte = fields.U8();
        size = (size << 7 | (byte & 0x7F)) & 0xFFFFFFF;
    }
    return fields.Take(size);
}

Bytes ReadSpecificInfo(const Bytes& esds) {
    Fields fields(esds);
    const Bytes stream = ReadDescriptor(fields);
    Fields inStream(stream);
    inStream.Skip(2);
    const uint8_t flags = inStream.U8();
    inStream.Skip(flags & 0x80 ? 2 : 0);
    if (flags & 0x40)
        inStream.Skip(inStream.U8());
    inStream.Skip(flags & 0x20 ? 2 : 0);
    const Bytes decoder = ReadDescriptor(inStream);
    Fields inDecoder(decoder);
    inDecoder.Skip(13);  // object type, stream type, buffer size, bit rates
    return ReadDescriptor(inDecoder);
}

const Box* FindBelow(const Box& box, const std::string& type) {
    const Box* found = box.Child(type);
    return found ? found : box.Find("wave/" + type);
}

std::string Quoted(const std::string& type) { return std::string("'").append(TypeText(type)).append("'"); }

}  // namespace

SampleEntry ReadSampleEntry(const File& file, const Box& box) {
    SampleEntry entry;
    entry.box = &box;
    entry.type = box.type;
    entry.encrypted = IsOneOf(box.type, {"encv", "enca", "encs", "enct", "drmi", "drms"});
    if (const Box* frma = box.Find("sinf/frma")) {
        const Bytes type = file.ReadBytes(frma->Content(), frma->ContentSize(), 4);
        entry.original.assign(type.begin(), type.end());
    }
    const Bytes head = file.ReadBytes(box.Content(), box.ContentSize(), 64);
    Fields fields(head);
    if (IsVideoType(box.type)) {
        fields.Skip(24);
        entry.width = fields.U16();
        entry.height = fields.U16();
    } else if (IsAudioType(box.type)) {
        fields.Skip(16);
        entry.channels = fields.U16();
        entry.sampleBits = fields.U16();
        fields.Skip(4);
        entry.sampleRate = fields.U32() >> 16;
    }
    entry.avcCBox = box.Child("avcC");
    entry.esdsBox = FindBelow(box, "esds");
    if (entry.avcCBox) {
        entry.avcC = file.ReadBytes(entry.avcCBox->Content(), entry.avcCBox->ContentSize(), kMaxEntry);
        ReadAvcC(entry);
    }
    if (entry.esdsBox)
        entry.esds = file.ReadBytes(entry.esdsBox->Content(), entry.esdsBox->ContentSize(), kMaxEntry);
    entry.specific = ReadSpecificInfo(entry.esds);
    return entry;
}

std::string RefusalOf(const SampleEntry& entry) {
    const std::string name = Quoted(entry.type);
    if (entry.encrypted)
        return name + " is encrypted" + (entry.original.empty() ? "" : ", before that " + Quoted(entry.original));
    if (entry.type == "avc1")
        return entry.avcC.empty() ? name + " has no 'avcC' configuration" : "";
    if (IsOneOf(entry.type, {"mp4v", "jvt1"}))
        return entry.esds.empty() ? name + " has no 'esds' configuration" : "";
    if (IsOneOf(entry.type, {"mp4a", "lpcm", "alaw", "ulaw", "samr", "samw", "rle ", "I420", "YUY2"}))
        return "";
    return name + " is not supported";
}

std::string UndeliveredReason(const SampleEntry& entry) {
    constexpr size_t kWaveformHeader = 20;
    const bool wave = !entry.box->children.empty() && entry.box->children[0]->type == "wave";
    const bool needsHeader =
        IsOneOf(entry.type, {"lpcm", "alaw", "ulaw", "samr", "samw"}) || (entry.type == "mp4a" && wave);
    if (!needsHeader || entry.specific.size() >= kWaveformHeader)
        return "";
    return Quoted(entry.type) + (wave ? " in a QuickTime 'wave' box" : "") + " has no waveform header";
}

Kind KindOf(const std::vector<SampleEntry>& entries) {
    if (entries.empty())
        return Kind::Other;
    return IsVideoType(entries[0].type) ? Kind::Video : IsAudioType(entries[0].type) ? Kind::Audio : Kind::Other;
}

}  // namespace kivmp4::inspect
