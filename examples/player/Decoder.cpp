// Sets the decoder up from CodecInfo, and gives it parameter sets wherever it starts.
#include "Decoder.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace player {
namespace {

AVCodecID CodecOf(const CodecInfo& info) {
    switch (info.subtype) {
        case KIVMP4_VIDEO_MPEG4: return AV_CODEC_ID_MPEG4;
        case KIVMP4_VIDEO_H264: return AV_CODEC_ID_H264;
        default: return AV_CODEC_ID_AAC;
    }
}

// Appends `count` sets, each a length of two bytes and its bytes. @return the position past them; 0 when cut off
size_t AppendSets(const CodecInfo& info, size_t position, int count, std::vector<uint8_t>& sets) {
    constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
    for (; count > 0; --count) {
        if (position + 2 > info.configSize)
            return 0;
        const size_t size = static_cast<size_t>(info.config[position] << 8 | info.config[position + 1]);
        position += 2;
        if (size > info.configSize - position)
            return 0;
        sets.insert(sets.end(), kStartCode, kStartCode + sizeof kStartCode);
        sets.insert(sets.end(), info.config + position, info.config + position + size);
        position += size;
    }
    return position;
}

}  // namespace

std::vector<uint8_t> ParameterSets(const CodecInfo& info) {
    std::vector<uint8_t> sets;
    if (info.configSize < 6)
        return sets;
    const size_t position = AppendSets(info, 6, info.config[5] & 31, sets);
    if (position == 0 || position >= info.configSize ||
        AppendSets(info, position + 1, info.config[position], sets) == 0)
        sets.clear();
    return sets;
}

Decoder::Decoder(const CodecInfo& info) {
    const AVCodec* codec = avcodec_find_decoder(CodecOf(info));
    context.reset(avcodec_alloc_context3(codec));
    coded.reset(av_packet_alloc());
    if (!codec || !context || !coded) {
        std::fprintf(stderr, "player: libavcodec has no decoder for this file, or there is no memory\n");
        std::exit(1);
    }
    context->pkt_timebase = {1, KIVMP4_TICKS_PER_SECOND};
    context->thread_count = 0;  // as many as there are processors
    if (info.kind == KIVMP4_KIND_VIDEO && info.subtype == KIVMP4_VIDEO_H264) {
        parameterSets = ParameterSets(info);
    } else if (info.configSize > 0) {
        context->extradata = static_cast<uint8_t*>(av_mallocz(info.configSize + AV_INPUT_BUFFER_PADDING_SIZE));
        if (context->extradata) {
            std::memcpy(context->extradata, info.config, info.configSize);
            context->extradata_size = info.configSize;
        }
    }
    if (avcodec_open2(context.get(), codec, nullptr) < 0) {
        std::fprintf(stderr, "player: the decoder does not take this file's configuration\n");
        std::exit(1);
    }
}

void Decoder::Flush() {
    avcodec_flush_buffers(context.get());
    fresh = true;
}

void Decoder::Decode(const Packet& packet, const std::function<void(Frame)>& take) {
    if (!packet.end)
        Feed(packet);
    const bool drain = packet.end || packet.still;
    if (drain)
        avcodec_send_packet(context.get(), nullptr);
    for (;;) {
        Frame frame(av_frame_alloc());
        if (!frame || avcodec_receive_frame(context.get(), frame.get()) != 0)
            break;
        if (frame->best_effort_timestamp != AV_NOPTS_VALUE)
            frame->pts = frame->best_effort_timestamp;
        take(std::move(frame));
    }
    if (drain)
        Flush();
}

// The module gives H.264 parameter sets before sample 0 only, so after a jump the decoder gets those of CodecInfo.
void Decoder::Feed(const Packet& packet) {
    const size_t extra = fresh ? parameterSets.size() : 0;
    if (av_new_packet(coded.get(), static_cast<int>(extra + packet.bytes.size())) != 0)
        return;
    if (extra > 0)
        std::memcpy(coded->data, parameterSets.data(), extra);
    std::memcpy(coded->data + extra, packet.bytes.data(), packet.bytes.size());
    coded->pts = packet.pts;
    coded->dts = packet.dts;
    coded->duration = packet.duration;
    // All frames are taken after each packet, so a decoder never refuses one for want of room.
    avcodec_send_packet(context.get(), coded.get());
    av_packet_unref(coded.get());
    fresh = false;
}

}  // namespace player
