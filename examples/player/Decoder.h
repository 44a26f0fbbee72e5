// One libavcodec decoder, fed with the module's units.
#pragma once

#include <KivMp4.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "Exchange.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace player {

struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Frame = std::unique_ptr<AVFrame, FreeFrame>;

/// Belongs to one thread.
class Decoder {
public:
    explicit Decoder(const CodecInfo& info);
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    /// Decodes one packet; an end packet and a still bring out all that the decoder holds back. Calls `take` for each
    /// frame. A damaged packet brings no frame.
    void Decode(const Packet& packet, const std::function<void(Frame)>& take);
    /// Forgets all that came before. Call it when packets of another place follow.
    void Flush();

private:
    struct FreeContext {
        void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    };
    struct FreePacket {
        void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    };

    void Feed(const Packet& packet);

    std::unique_ptr<AVCodecContext, FreeContext> context;
    std::unique_ptr<AVPacket, FreePacket> coded;
    std::vector<uint8_t> parameterSets;  // H.264: with start codes
    bool fresh = true;                   // nothing was fed since the decoder was flushed
};

/// H.264: the parameter sets of CodecInfo.config, each after a start code. Empty when the record is cut off, or was too
/// long for CodecInfo; a decoder that keeps them over a flush then has those before the first unit.
std::vector<uint8_t> ParameterSets(const CodecInfo& info);

}  // namespace player
