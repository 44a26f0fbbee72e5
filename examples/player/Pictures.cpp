// The picture decoder's thread, and the few pictures that it is ahead.
#include "Pictures.h"

#include <utility>

namespace player {
namespace {

constexpr size_t kMostPictures = 4;

double Seconds(int64_t ticks) { return static_cast<double>(ticks) / KIVMP4_TICKS_PER_SECOND; }

}  // namespace

Pictures::Pictures(const CodecInfo& info, Exchange& from) : exchange(from) {
    thread = std::thread([this, info] { Run(info); });
}

Pictures::~Pictures() {
    {
        const std::lock_guard lock(mutex);
        finished = true;
        room.notify_all();
    }
    thread.join();
}

void Pictures::Run(const CodecInfo& info) {
    Decoder decoder(info);
    Packet packet;
    Picture passed;  // the last one before the place that was sought, in case that the film ends there
    uint32_t serial = 0;
    while (exchange.Pop(Stream::Picture, packet)) {
        if (packet.serial != serial) {
            decoder.Flush();
            passed = {};
            serial = packet.serial;
        }
        decoder.Decode(packet, [&](Frame frame) {
            const double time = Seconds(frame->pts), duration = Seconds(frame->pkt_duration);
            const bool before = frame->pts + frame->pkt_duration <= packet.showFrom;
            Picture picture{std::move(frame), time, duration, serial, packet.still};
            if (before) {
                passed = std::move(picture);
            } else {
                passed = {};
                Push(std::move(picture));
            }
        });
        if (packet.end) {
            if (passed.frame)
                Push(std::exchange(passed, {}));
            Push({nullptr, 0, 0, serial, false});
        }
    }
}

void Pictures::Push(Picture picture) {
    std::unique_lock lock(mutex);
    room.wait(lock, [this] { return finished || ready.size() < kMostPictures; });
    ready.push_back(std::move(picture));
}

const Picture* Pictures::Next(uint32_t serial) {
    const std::lock_guard lock(mutex);
    while (!ready.empty() && ready.front().serial != serial) {
        ready.pop_front();
        room.notify_all();
    }
    return ready.empty() ? nullptr : &ready.front();
}

Picture Pictures::Take() {
    const std::lock_guard lock(mutex);
    Picture picture = std::move(ready.front());
    ready.pop_front();
    room.notify_all();
    return picture;
}

bool Pictures::IsOvertaken(double now) {
    const std::lock_guard lock(mutex);
    return ready.size() > 1 && ready[1].frame && ready[1].serial == ready[0].serial && ready[1].time <= now;
}

}  // namespace player
