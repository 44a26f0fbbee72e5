// Comparison of codec records, and the promise of their layout.
#include "codec/CodecInfo.h"

#include <cstddef>
#include <cstring>

namespace kivmp4 {

static_assert(sizeof(CodecInfo) == 344);
static_assert(offsetof(CodecInfo, kind) == 0 && offsetof(CodecInfo, subtype) == 4);
static_assert(offsetof(CodecInfo, width) == 8 && offsetof(CodecInfo, height) == 12);
static_assert(offsetof(CodecInfo, profile) == 16 && offsetof(CodecInfo, level) == 20);
static_assert(offsetof(CodecInfo, refFrames) == 24 && offsetof(CodecInfo, decFrameBuffering) == 28);
static_assert(offsetof(CodecInfo, maxTrackOffset) == 32 && offsetof(CodecInfo, meanSampleDuration) == 40);
static_assert(offsetof(CodecInfo, aspectRatio) == 48 && offsetof(CodecInfo, sampleRate) == 56);
static_assert(offsetof(CodecInfo, bitsPerSample) == 60 && offsetof(CodecInfo, maxBitrate) == 64);
static_assert(offsetof(CodecInfo, avgBitrate) == 68 && offsetof(CodecInfo, bufferSize) == 72);
static_assert(offsetof(CodecInfo, channels) == 76 && offsetof(CodecInfo, language) == 80);
static_assert(offsetof(CodecInfo, configSize) == 84 && offsetof(CodecInfo, config) == 85);
static_assert(offsetof(CodecInfo, reserved2) == 340);

bool Equals(const CodecInfo& a, const CodecInfo& b) {
    if (a.kind != b.kind || a.subtype != b.subtype || a.configSize != b.configSize ||
        std::memcmp(a.config, b.config, a.configSize) != 0)
        return false;
    if (a.kind == 0)
        return a.meanSampleDuration == b.meanSampleDuration && a.height == b.height && a.width == b.width;
    if (a.kind == 1)
        return a.channels == b.channels && a.bitsPerSample == b.bitsPerSample && a.sampleRate == b.sampleRate;
    return true;
}

}  // namespace kivmp4
