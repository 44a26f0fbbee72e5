// The sample description: what a track carries and how its decoder is configured (ISO/IEC 14496-12, 8.5.2).
#include "codec/ElementaryStream.h"
#include "container/BoxContent.h"
#include "container/Descriptors.h"
#include "container/Track.h"
#include "support/Log.h"

namespace kivmp4 {
namespace {

constexpr uint32_t kVisualChildren = 78;  // content offset of the boxes inside a visual sample entry
constexpr uint32_t kSoundChildren = 28;   // the same in a sound entry; later versions have longer ones
constexpr uint32_t kSoundChildren1 = 44;
constexpr uint32_t kSoundChildren2 = 64;
constexpr uint8_t kEsDescriptorTag = 3;
constexpr size_t kDecoderConfigFixed = 13;

bool IsWaveAt(ByteView content, size_t offset) {
    return content.Has(offset, 8) && content.BE32(offset + 4) == FourCc("wave");
}

// Sound entries of version 1 and 2 may hold a "wave" box. It is looked for byte by byte from the first possible place.
// @return content offset of the children; the code changes when there is a "wave" box
uint32_t LocateSoundChildren(ByteView content, CodecType& code) {
    const uint16_t version = content.BE16(8);
    const uint32_t children = version == 1 ? kSoundChildren1 : version == 2 ? kSoundChildren2 : kSoundChildren;
    if (version == 0 || !IsWaveAt(content, children))
        return children;
    uint32_t offset = kSoundChildren;
    while (!IsWaveAt(content, offset))
        ++offset;  // ends at `children` at the latest
    code = CodecType::OtherAudio;
    return offset;
}

}  // namespace

bool Track::ParseSTSD(Mp4Box& stsd, int64_t meanSampleDuration) {
    uint8_t header[8];
    const bool present = stsd.GetSize() - stsd.GetHeaderSize() >= static_cast<int64_t>(sizeof(header));
    if (!present || stsd.Read(stsd.GetHeaderSize(), sizeof(header), header) != ReadStatus::Done) {
        LogError(logLevel, "ParseSTSD", 576, " Currupted header size");
        return false;
    }
    if (header[0] != 0 || ReadBE32(header + 4) != 1) {
        LogError(logLevel, "ParseSTSD", 581, " Invalid data in STSD");
        return false;
    }
    stsd.ParseChildren(sizeof(header));
    // A lookup would walk again from the header's end when nothing was found.
    if (stsd.ListedChildren() == 0) {
        LogError(logLevel, "ParseSTSD", 587, " No child present");
        return false;
    }
    elementaryStream.Take(ModuleNew<ElementaryStream>(logLevel));
    if (!elementaryStream || !elementaryStream->ParseSampleEntry(0, meanSampleDuration, *stsd.GetChild(0))) {
        LogError(logLevel, "ParseSTSD", 592, " Unable to parse Elementary Type");
        return false;
    }
    return true;
}

bool ElementaryStream::ParseSampleEntry(uint32_t, int64_t meanDuration, Mp4Box& entry) {
    meanSampleDuration = meanDuration;
    const BoxContent content(&entry);
    uint32_t childrenOffset = 0;
    if (!content || !ReadEntryFields(entry, *content, childrenOffset))
        return false;
    if (codecType == CodecType::UncompressedVideo)
        return true;
    entry.ParseChildren(childrenOffset);
    if (!ReadEntryChildren(entry, entry.GetType() == FourCc("avc1")))
        return false;
    return IsAudio() || codecConfigSize > 0;
}

// Classifies the entry and reads its fixed fields. @return false for an unknown type or a record cut short
bool ElementaryStream::ReadEntryFields(Mp4Box& entry, ByteView content, uint32_t& childrenOffset) {
    switch (entry.GetType()) {
        case FourCc("mp4v"): codecType = CodecType::Mpeg4Visual; break;
        case FourCc("jvt1"):
        case FourCc("avc1"): codecType = CodecType::H264; break;
        case FourCc("rle "):
        case FourCc("I420"):
        case FourCc("YUY2"):
            codecType = CodecType::UncompressedVideo;
            rawFourcc = entry.GetType();
            rawDepth = content.BE16(74);
            break;
        case FourCc("mp4a"):
            codecType = CodecType::Aac;
            childrenOffset = LocateSoundChildren(content, codecType);
            return content.Has(8, 2);
        case FourCc("lpcm"):
        case FourCc("alaw"):
        case FourCc("ulaw"):
        case FourCc("samr"):
        case FourCc("samw"):
            codecType = CodecType::OtherAudio;
            childrenOffset = kSoundChildren;
            return true;
        default: return false;
    }
    width = content.BE16(24);
    height = content.BE16(26);
    childrenOffset = kVisualChildren;
    return content.Has(24, 4) && (codecType != CodecType::UncompressedVideo || content.Has(74, 2));
}

// Looks through the boxes of the entry, which are in memory with it, for its configuration.
// @return false when one of them makes the entry unusable
bool ElementaryStream::ReadEntryChildren(Mp4Box& entry, bool isAvc) {
    const uint32_t children = entry.GetChildCount();
    bool stop = false;
    for (uint32_t position = 0; position < children && !stop; ++position) {
        Mp4Box* child = entry.GetChild(position);
        const BoxContent content(child);
        if (!ReadConfigurationChild(*child, *content, isAvc, stop))
            return false;
    }
    return true;
}

bool ElementaryStream::ReadConfigurationChild(Mp4Box& child, ByteView content, bool isAvc, bool& stop) {
    if (isAvc) {
        stop = child.GetType() == FourCc("avcC");
        if (stop && StoreConfig(content)) {
            ExtractSPSInformation(Config(), sps, logLevel);
            DisplayH264SPSInfo(sps, logLevel);
        }
        return true;
    }
    switch (child.GetType()) {
        case FourCc("d263"):
        case FourCc("damr"): stop = true; return true;
        case FourCc("esds"): stop = true; return ParseEsds(child);
        case FourCc("wave"):
            for (uint32_t position = 0; position < child.GetChildCount(); ++position) {
                Mp4Box* inner = child.GetChild(position);
                if (inner->GetType() == FourCc("esds") && ParseEsds(*inner))
                    break;
            }
            stop = codecConfigSize > 0;
            return true;
        default: return true;
    }
}

bool ElementaryStream::ParseEsds(Mp4Box& esds) {
    const BoxContent content(&esds);
    if (!content->Has(0, 4) || content->U8(0) != 0)
        return false;
    Descriptor elementary, config, specific;
    if (!ReadDescriptor(content->From(4), elementary) || elementary.tag != kEsDescriptorTag)
        return false;
    const size_t prefix = EsDescriptorPrefix(elementary.body);
    if (prefix > elementary.body.size || !ReadDescriptor(elementary.body.From(prefix), config))
        return false;
    if (!Store(decoderConfig, decoderConfigSize, config.body))
        return false;
    if (config.body.size < kDecoderConfigFixed || !ReadDescriptor(config.body.From(kDecoderConfigFixed), specific))
        return false;
    return StoreConfig(specific.body);
}

}  // namespace kivmp4
