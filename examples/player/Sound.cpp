// Keeps half a second of sound ready. What SDL's thread takes sets the clock.
#include "Sound.h"

#include <algorithm>
#include <cmath>
#include <utility>

extern "C" {
#include <libswresample/swresample.h>
}

namespace player {
namespace {

constexpr size_t kMost = Sound::kRate / 2;    // samples a channel kept ready
constexpr size_t kEnough = Sound::kRate / 4;  // to go on after a stall
constexpr Uint16 kDeviceFrames = 1024;

double SecondsOf(size_t frames) { return static_cast<double>(frames) / Sound::kRate; }

}  // namespace

Sound::Sound(const CodecInfo& info, Exchange& from, Clock& driven, Report& told)
    : exchange(from), clock(driven), report(told) {
    SDL_AudioSpec wanted{}, obtained{};
    wanted.freq = kRate;
    wanted.format = AUDIO_F32SYS;
    wanted.channels = kChannels;
    wanted.samples = kDeviceFrames;
    wanted.callback = Play;
    wanted.userdata = this;
    device = SDL_OpenAudioDevice(nullptr, 0, &wanted, &obtained, 0);
    if (device == 0)
        return;
    latency = SecondsOf(obtained.samples);  // the buffer before the one that Play fills is heard meanwhile
    thread = std::thread([this, info] { Run(info); });
    SDL_PauseAudioDevice(device, 0);
}

Sound::~Sound() {
    if (device == 0)
        return;
    {
        const std::lock_guard lock(mutex);
        finished = true;
        room.notify_all();
    }
    thread.join();
    SDL_CloseAudioDevice(device);
    swr_free(&converter);
}

void Sound::Begin(uint32_t serial) {
    const std::lock_guard lock(mutex);
    chunks.clear();
    used = queued = lead = 0;
    current = serial;
    started = aligned = ended = starved = false;
    room.notify_all();
}

void Sound::Start(double time) {
    const std::lock_guard lock(mutex);
    if (started)
        return;
    started = true;
    startTime = time;
}

void Sound::Pause(bool pause) { SDL_PauseAudioDevice(device, pause ? 1 : 0); }

bool Sound::IsStarved() {
    const std::lock_guard lock(mutex);
    return starved;
}

bool Sound::IsOver() {
    const std::lock_guard lock(mutex);
    return ended && queued == 0;
}

void Sound::Run(const CodecInfo& info) {
    Decoder decoder(info);
    Packet packet;
    uint32_t serial = 0;
    while (exchange.Pop(Stream::Sound, packet)) {
        if (packet.serial != serial) {
            decoder.Flush();
            serial = packet.serial;
        }
        decoder.Decode(packet, [&](Frame frame) {
            const double time = static_cast<double>(frame->pts) / KIVMP4_TICKS_PER_SECOND;
            if (frame->pts + frame->pkt_duration > packet.showFrom)
                Push(serial, {Convert(*frame), time});
        });
        if (packet.end)
            Push(serial, {});
    }
}

// To interleaved stereo of the device's rate. The decoder alone knows the rate and channels that the sound really has.
std::vector<float> Sound::Convert(const AVFrame& frame) {
    const std::vector<int64_t> form = {frame.sample_rate, frame.ch_layout.nb_channels, frame.format};
    if (form != converted) {
        AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
        auto* const layout = const_cast<AVChannelLayout*>(&frame.ch_layout);  // older releases leave out the const
        swr_free(&converter);
        if (swr_alloc_set_opts2(&converter, &stereo, AV_SAMPLE_FMT_FLT, kRate, layout,
                                static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr) != 0 ||
            swr_init(converter) != 0) {
            swr_free(&converter);
            return {};
        }
        converted = form;
    }
    const int most = swr_get_out_samples(converter, frame.nb_samples);
    std::vector<float> samples(static_cast<size_t>(most) * kChannels);
    uint8_t* output = reinterpret_cast<uint8_t*>(samples.data());
    const int got =
        swr_convert(converter, &output, most, const_cast<const uint8_t**>(frame.extended_data), frame.nb_samples);
    samples.resize(static_cast<size_t>(std::max(got, 0)) * kChannels);
    return samples;
}

// An empty chunk is the end.
void Sound::Push(uint32_t serial, Chunk chunk) {
    std::unique_lock lock(mutex);
    room.wait(lock, [&] { return finished || serial != current || queued < kMost; });
    if (finished || serial != current)
        return;
    if (chunk.samples.empty()) {
        ended = true;
        return;
    }
    queued += chunk.samples.size() / kChannels;
    chunks.push_back(std::move(chunk));
}

// SDL's thread. The clock follows what is handed over here; where sound is missing in the middle of the film it stands.
void Sound::Play(void* context, uint8_t* stream, int size) {
    Sound& sound = *static_cast<Sound*>(context);
    const bool full = sound.exchange.IsFull();  // then no sound can come before pictures have gone
    const std::lock_guard lock(sound.mutex);
    float* const output = reinterpret_cast<float*>(stream);
    const int frames = size / static_cast<int>(kChannels * sizeof(float));
    std::fill_n(output, static_cast<size_t>(frames) * kChannels, 0.0f);
    if (!sound.started)
        return;
    if (sound.queued == 0 && (sound.ended || full)) {
        sound.starved = false;
        sound.clock.Run();
        if (!sound.ended) {  // sound that comes yet has to find the place that the pictures have reached
            sound.startTime = sound.clock.Now();
            sound.aligned = false;
        }
        return;
    }
    if (!sound.IsReady()) {
        sound.clock.Hold();
        return;
    }
    sound.Align();
    if (sound.queued == 0)
        return;
    const double before = SecondsOf(sound.lead);
    const double time = sound.chunks.front().time + SecondsOf(sound.used) - before;
    const int copied = sound.Copy(output, frames);
    sound.clock.Set(time - sound.latency, 2 * SecondsOf(static_cast<size_t>(frames)));
    sound.report.SoundPlayed(sound.current, time, copied, kRate, sound.latency);
}

// Whether there is something to play; after a stall, whether it is enough to go on.
bool Sound::IsReady() {
    if (starved)
        starved = !ended && queued < kEnough;
    else if (queued == 0 || (!aligned && !ended && queued < kDeviceFrames)) {
        starved = aligned;  // before the first sample it is no stall
        if (starved)
            report.Stalled();
        return false;
    }
    return !starved;
}

// Makes the first sample that of the time of Start: drops what lies before it, or puts silence there.
void Sound::Align() {
    while (!aligned && queued > 0) {
        const double early = startTime - (chunks.front().time + SecondsOf(used));
        if (early <= 0) {
            lead = static_cast<size_t>(-early * kRate);
            aligned = true;
            return;
        }
        const size_t here = chunks.front().samples.size() / kChannels - used;
        Use(std::min(here, static_cast<size_t>(std::ceil(early * kRate))));
    }
}

// @return the samples a channel that were there, silence before the first among them
int Sound::Copy(float* output, int frames) {
    const size_t wanted = static_cast<size_t>(frames), silence = std::min(lead, wanted);
    size_t done = silence;
    lead -= silence;
    while (done < wanted && queued > 0) {
        const Chunk& chunk = chunks.front();
        const size_t here = chunk.samples.size() / kChannels - used, count = std::min(here, wanted - done);
        std::copy_n(chunk.samples.data() + used * kChannels, count * kChannels, output + done * kChannels);
        done += count;
        Use(count);
    }
    return static_cast<int>(done);
}

// Takes samples out of the first chunk, which has at least as many.
void Sound::Use(size_t count) {
    used += count;
    queued -= count;
    if (used == chunks.front().samples.size() / kChannels) {
        chunks.pop_front();
        used = 0;
    }
    room.notify_all();
}

}  // namespace player
