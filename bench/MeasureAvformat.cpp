// measure_avformat FILE annexb|raw: the same work through libavformat. "annexb" makes the product that the module
// makes, H.264 with start codes; "raw" leaves the samples as they are, which is the fastest that the library can do.
extern "C" {
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
}

#include <vector>

#include "Measure.h"

namespace kivmp4::bench {
namespace {

class Demuxer {
public:
    /// @return whether the file could be opened
    bool Open(const char* path, bool startCodes) {
        const Stopwatch watch;
        if (avformat_open_input(&context, path, nullptr, nullptr) < 0)
            return false;
        Report("open_ms", watch.Elapsed() * 1e3);
        for (unsigned i = 0; i < context->nb_streams && video < 0; ++i) {
            if (context->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO)
                video = static_cast<int>(i);
        }
        leading = video < 0 ? 0 : video;
        if (startCodes && video >= 0 && context->streams[video]->codecpar->codec_id == AV_CODEC_ID_H264) {
            av_bsf_alloc(av_bsf_get_by_name("h264_mp4toannexb"), &filter);
            avcodec_parameters_copy(filter->par_in, context->streams[video]->codecpar);
            filter->time_base_in = context->streams[video]->time_base;
            return av_bsf_init(filter) == 0;
        }
        return true;
    }

    /// Takes one packet. @return its stream; -1 at the end
    int Take() {
        if (av_read_frame(context, packet) < 0)
            return -1;
        const int stream = packet->stream_index;
        time = packet->pts;
        if (!filter || stream != video) {
            Copy();
        } else if (av_bsf_send_packet(filter, packet) == 0) {
            while (av_bsf_receive_packet(filter, packet) == 0)
                Copy();
        }
        return stream;
    }

    void Deliver() {
        double units = 0;
        const Stopwatch watch;
        while (Take() >= 0)
            ++units;
        Report("deliver_s", watch.Elapsed());
        Report("units", units);
        Report("memory_kib", PeakMemory());
    }

    void Seek() {
        Fractions fractions;
        const auto duration = static_cast<double>(context->streams[leading]->duration);
        const Stopwatch watch;
        for (int seek = 0; seek < kSeeks; ++seek) {
            const auto target = static_cast<int64_t>(fractions.Next() * duration);
            if (av_seek_frame(context, leading, target, AVSEEK_FLAG_BACKWARD) < 0)
                continue;
            for (int stream = Take(); stream >= 0 && stream != leading;)
                stream = Take();
        }
        Report("seek_us", watch.Elapsed() / kSeeks * 1e6);
    }

    void Wind() {
        for (unsigned i = 0; i < context->nb_streams; ++i) {
            if (static_cast<int>(i) != video)
                context->streams[i]->discard = AVDISCARD_ALL;
        }
        int units = 0;
        int64_t target = -1000000000, before = INT64_MIN;
        const Stopwatch watch;
        for (; av_seek_frame(context, video, target, 0) >= 0 && Take() >= 0 && time > before; target = time + 1) {
            before = time;
            ++units;
        }
        Report("keys", units);
        Report("sweep_us", watch.Elapsed() / (units > 0 ? units : 1) * 1e6);
    }

    bool HasVideo() const { return video >= 0; }

private:
    // A player's own buffer gets the bytes, as the module's record does.
    void Copy() {
        const auto size = static_cast<size_t>(packet->size);
        if (buffer.size() < size)
            buffer.resize(size * 2);
        std::memcpy(buffer.data(), packet->data, size);
        av_packet_unref(packet);
    }

    AVFormatContext* context = nullptr;  // these go with the process
    AVBSFContext* filter = nullptr;
    AVPacket* packet = av_packet_alloc();
    std::vector<uint8_t> buffer;
    int video = -1, leading = 0;
    int64_t time = 0;  // of the last packet, in the stream's unit
};

}  // namespace
}  // namespace kivmp4::bench

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    av_log_set_level(AV_LOG_ERROR);
    kivmp4::bench::Demuxer demuxer;
    if (!demuxer.Open(argv[1], std::strcmp(argv[2], "annexb") == 0))
        return 1;
    demuxer.Deliver();
    demuxer.Seek();
    if (demuxer.HasVideo())
        demuxer.Wind();
    return 0;
}
