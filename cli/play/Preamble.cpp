// What a decoder needs before the first unit.
#include "play/Preamble.h"

namespace kivmp4::cli {

std::string Preamble(const CodecInfo& info, const inspect::Track* track) {
    if (info.kind != KIVMP4_KIND_VIDEO)
        return {};
    std::string bytes;
    const inspect::SampleEntry* entry = track ? track->Entry() : nullptr;
    if (info.subtype != KIVMP4_VIDEO_H264)
        return std::string(info.config, info.config + info.configSize);
    if (!entry)
        return {};
    for (const inspect::Bytes& set : entry->sps)
        bytes.append({0, 0, 1}).append(set.begin(), set.end());
    for (const inspect::Bytes& set : entry->pps)
        bytes.append({0, 0, 0, 1}).append(set.begin(), set.end());
    return bytes;
}

}  // namespace kivmp4::cli
