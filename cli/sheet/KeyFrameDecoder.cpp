// Decodes single key frames and scales them.
#include "sheet/KeyFrameDecoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>

#include "print/Failure.h"

namespace kivmp4::cli {

namespace {

constexpr int kTallest = 8192;  // pixels: streams may claim any shape

template <auto Release>
struct Releaser {
    template <typename Object>
    void operator()(Object* object) const {
        Release(&object);
    }
};
using Context = std::unique_ptr<AVCodecContext, Releaser<avcodec_free_context>>;
using Frame = std::unique_ptr<AVFrame, Releaser<av_frame_free>>;
using Packet = std::unique_ptr<AVPacket, Releaser<av_packet_free>>;

}  // namespace

struct KeyFrameDecoder::State {
    Context context;
    Frame frame{av_frame_alloc()};
    Packet packet{av_packet_alloc()};
};

KeyFrameDecoder::KeyFrameDecoder(const CodecInfo& info, const std::string& preamble)
    : state(std::make_unique<State>()) {
    av_log_set_level(AV_LOG_QUIET);  // a frame that cannot be decoded becomes a gap
    const AVCodec* codec =
        avcodec_find_decoder(info.subtype == KIVMP4_VIDEO_H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_MPEG4);
    state->context.reset(codec ? avcodec_alloc_context3(codec) : nullptr);
    if (!state->context || !state->frame || !state->packet)
        throw Failure{kNotBuilt, "libavcodec has no decoder for this track"};
    AVCodecContext& context = *state->context;
    context.thread_count = 1;
    context.extradata = static_cast<uint8_t*>(av_mallocz(preamble.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (context.extradata) {
        std::memcpy(context.extradata, preamble.data(), preamble.size());
        context.extradata_size = static_cast<int>(preamble.size());
    }
    if (avcodec_open2(&context, codec, nullptr) < 0)
        throw Failure{kNotBuilt, "libavcodec does not open its decoder for this track"};
}

KeyFrameDecoder::~KeyFrameDecoder() = default;

namespace {

std::optional<Picture> Scale(const AVFrame& frame, int width, double aspect) {
    if (frame.sample_aspect_ratio.num > 0 && frame.sample_aspect_ratio.den > 0)
        aspect = av_q2d(frame.sample_aspect_ratio);
    const double shape = frame.height / (frame.width * aspect);
    Picture picture{width, static_cast<int>(std::clamp(std::round(width * shape), 1.0, double{kTallest}))};
    picture.pixels.resize(static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height));
    SwsContext* scaler =
        sws_getContext(frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), picture.width,
                       picture.height, AV_PIX_FMT_RGB32, SWS_AREA, nullptr, nullptr, nullptr);
    if (!scaler)
        return std::nullopt;
    uint8_t* rows[] = {reinterpret_cast<uint8_t*>(picture.pixels.data())};
    const int strides[] = {picture.width * 4};
    const int done = sws_scale(scaler, frame.data, frame.linesize, 0, frame.height, rows, strides);
    sws_freeContext(scaler);
    return done > 0 ? std::optional(std::move(picture)) : std::nullopt;
}

}  // namespace

std::optional<Picture> KeyFrameDecoder::Decode(const AccessUnit& unit, int width, double aspect) {
    AVCodecContext* context = state->context.get();
    // The decoder reads some bytes past the end, so the unit is copied into a packet of its own.
    if (av_new_packet(state->packet.get(), unit.size) < 0)
        return std::nullopt;
    std::memcpy(state->packet->data, unit.payload, static_cast<size_t>(unit.size));
    avcodec_send_packet(context, state->packet.get());
    av_packet_unref(state->packet.get());
    avcodec_send_packet(context, nullptr);  // no more comes: the frame does not wait for others
    std::optional<Picture> picture;
    if (avcodec_receive_frame(context, state->frame.get()) == 0) {
        const AVFrame& frame = *state->frame;
        if (!frame.decode_error_flags && !(frame.flags & AV_FRAME_FLAG_CORRUPT) && frame.width > 0 && frame.height > 0)
            picture = Scale(frame, width, aspect);
    }
    av_frame_unref(state->frame.get());
    avcodec_flush_buffers(context);
    return picture;
}

}  // namespace kivmp4::cli
