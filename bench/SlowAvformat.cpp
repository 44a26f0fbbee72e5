// slow_avformat FILE: plays and seeks in it on a slow device, through libavformat with its usual buffer of 32 KiB.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "SlowDevice.h"

namespace kivmp4::bench {
namespace {

class Demuxer {
public:
    explicit Demuxer(SlowDevice& slowDevice) : device(slowDevice) {}

    bool Open() {
        constexpr int kBuffer = 32768;
        context->pb =
            avio_alloc_context(static_cast<uint8_t*>(av_malloc(kBuffer)), kBuffer, 0, this, Read, nullptr, Move);
        if (avformat_open_input(&context, nullptr, nullptr, nullptr) < 0)
            return false;
        for (unsigned i = context->nb_streams; i-- > 0;) {
            if (context->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO)
                leading = static_cast<int>(i);
        }
        return true;
    }
    int64_t Take() {
        if (av_read_frame(context, packet) < 0)
            return -1;
        const int64_t size = packet->size;
        stream = packet->stream_index;
        av_packet_unref(packet);
        return size;
    }
    void Seek(double fraction) {
        const auto duration = static_cast<double>(context->streams[leading]->duration);
        if (av_seek_frame(context, leading, static_cast<int64_t>(fraction * duration), AVSEEK_FLAG_BACKWARD) < 0)
            return;
        while (Take() >= 0 && stream != leading) {
        }
    }

private:
    static int Read(void* context, uint8_t* destination, int size) {
        Demuxer& demuxer = *static_cast<Demuxer*>(context);
        const ssize_t got = demuxer.device.Read(destination, demuxer.position, static_cast<uint32_t>(size));
        if (got <= 0)
            return AVERROR_EOF;
        demuxer.position += got;
        return static_cast<int>(got);
    }
    static int64_t Move(void* context, int64_t offset, int whence) {
        Demuxer& demuxer = *static_cast<Demuxer*>(context);
        if (whence == AVSEEK_SIZE)
            return demuxer.device.Size();
        const int64_t from = whence == SEEK_CUR ? demuxer.position : whence == SEEK_END ? demuxer.device.Size() : 0;
        return demuxer.position = from + offset;
    }

    SlowDevice& device;
    int64_t position = 0;
    AVFormatContext* context = avformat_alloc_context();  // these go with the process
    AVPacket* packet = av_packet_alloc();
    int leading = 0, stream = 0;
};

}  // namespace
}  // namespace kivmp4::bench

int main(int argc, char** argv) {
    av_log_set_level(AV_LOG_ERROR);
    kivmp4::bench::SlowDevice device;
    if (argc != 2 || !device.Open(argv[1]))
        return 2;
    kivmp4::bench::Demuxer demuxer(device);
    return kivmp4::bench::MeasureOnSlowDevice(device, demuxer);
}
