// Codec information and unit handler selection.
#include "codec/ElementaryStream.h"

#include <cstring>

#include "codec/AacUnitHandler.h"
#include "codec/AvcUnitHandler.h"
#include "codec/CodecInfo.h"
#include "codec/ConfigPrefixUnitHandler.h"
#include "codec/PassThroughUnitHandler.h"
#include "support/Log.h"
#include "support/ModuleHeap.h"

namespace kivmp4 {
namespace {

constexpr size_t kConfigLimit = 256;  // a configuration of this size or more is not handed out
constexpr size_t kWaveformHeader = 20;

// samplingFrequencyIndex (ISO/IEC 14496-3, 1.6.3.4); the escape to an explicit frequency is not followed.
constexpr uint32_t kSampleRates[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                       16000, 12000, 11025, 8000,  7350,  0,     0,     0};

}  // namespace

ElementaryStream::~ElementaryStream() {
    ModuleFree(decoderConfig);
    ModuleFree(codecConfig);
    delete unitHandler;
}

// Replaces an owned copy. @return false when there is no memory; the copy is then empty
bool ElementaryStream::Store(uint8_t*& copy, int32_t& copySize, ByteView bytes) {
    ModuleFree(copy);
    copySize = 0;
    copy = static_cast<uint8_t*>(ModuleAlloc(1, bytes.size));
    if (!copy)
        return false;
    if (bytes.size)
        std::memcpy(copy, bytes.data, bytes.size);
    copySize = static_cast<int32_t>(bytes.size);
    return true;
}

void ElementaryStream::CopyConfig(CodecInfo& record) const {
    const ByteView config = Config();
    if (config.size >= kConfigLimit)
        return;
    record.configSize = static_cast<uint8_t>(config.size);
    if (config.size)
        std::memcpy(record.config, config.data, config.size);
}

void ElementaryStream::FillVideo(CodecInfo& record, uint32_t subtype) const {
    record.kind = 0;
    record.subtype = subtype;
    record.width = width;
    record.height = height;
    record.meanSampleDuration = meanSampleDuration;
    CopyConfig(record);
}

bool ElementaryStream::GetCodecInfo(CodecInfo* record, uint32_t index) const {
    if (!record || index != 0)
        return false;
    switch (codecType) {
        case CodecType::Mpeg4Visual:
        case CodecType::OtherVideo: FillVideo(*record, 0); return true;
        case CodecType::H264:
            GetH264_SPSInformation(sps, *record, logLevel);
            FillVideo(*record, 1);
            return true;
        case CodecType::Aac: return GetType_AAC(*record);
        case CodecType::OtherAudio: return GetWaveformInfo(*record);
        default: return false;
    }
}

// Bytes that the file does not have count as 0.
bool ElementaryStream::GetType_AAC(CodecInfo& record) const {
    record.kind = 1;
    record.subtype = 2;
    record.bitsPerSample = 16;
    const ByteView config = Config();
    if (config.Has(0, 2)) {  // AudioSpecificConfig: five bits of object type, then frequency index and channels
        record.channels = config.U8(1) >> 3 & 15u;
        record.sampleRate = kSampleRates[(config.U8(0) & 7u) * 2 + (config.U8(1) >> 7)];
    } else {
        record.channels = 0;
        record.sampleRate = 0;
    }
    if (record.channels > 2)
        LogError(logLevel, "GetType_AAC", 214, " Channels count (%d) exceeds 2 ", static_cast<int>(record.channels));
    const ByteView descriptor{decoderConfig, static_cast<size_t>(decoderConfigSize)};
    record.bufferSize = descriptor.BE24(2);
    record.maxBitrate = descriptor.BE32(5);
    record.avgBitrate = descriptor.BE32(9);
    CopyConfig(record);
    return true;
}

bool ElementaryStream::GetWaveformInfo(CodecInfo& record) const {
    record.kind = 1;
    record.subtype = 4;
    const ByteView header = Config();
    if (header.size < kWaveformHeader || header.size < kWaveformHeader + header.LE16(16))
        return false;
    record.sampleRate = header.LE32(4);
    record.channels = header.LE16(2);
    record.bitsPerSample = header.LE16(14);
    CopyConfig(record);
    return true;
}

bool ElementaryStream::SelectUnitHandler(const CodecInfo* requested) {
    if (!requested)
        return false;
    if (Equals(*requested, selectedInfo))
        return true;
    delete unitHandler;
    unitHandler = nullptr;
    selectedInfo = *requested;
    for (uint32_t index = 0;; ++index) {
        CodecInfo own = {};
        if (!GetCodecInfo(&own, index))
            return false;
        if (Equals(own, *requested))
            break;
    }
    switch (codecType) {
        case CodecType::Aac: unitHandler = ModuleNew<AacUnitHandler>(); break;
        case CodecType::Mpeg4Visual: unitHandler = ModuleNew<ConfigPrefixUnitHandler>(Config()); break;
        case CodecType::H264: unitHandler = ModuleNew<AvcUnitHandler>(Config()); break;
        default: unitHandler = ModuleNew<PassThroughUnitHandler>(); break;
    }
    return true;
}

}  // namespace kivmp4
