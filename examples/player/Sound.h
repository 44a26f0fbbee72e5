// Sound: decoded on its own thread, played by SDL's, and the source of the clock's time while it plays.
#pragma once

#include <SDL.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "Clock.h"
#include "Decoder.h"
#include "Report.h"

struct SwrContext;

namespace player {

class Sound {
public:
    static constexpr int kRate = 48000, kChannels = 2;

    Sound(const CodecInfo& info, Exchange& exchange, Clock& clock, Report& report);
    /// The exchange must have been told to finish.
    ~Sound();
    Sound(const Sound&) = delete;
    Sound& operator=(const Sound&) = delete;

    // All of these: the window's thread.

    /// Whether there is a device to play on. Without one nothing takes the sound's packets.
    bool IsOpen() const { return device != 0; }
    /// Another command was sent: silence until Start, and what came before is gone.
    void Begin(uint32_t serial);
    /// Plays from `time` on, once: the picture of that time is on the screen.
    void Start(double time);
    void Pause(bool pause);
    /// Whether it waits for data in the middle of the film.
    bool IsStarved();
    /// Whether it has played all that there was.
    bool IsOver();

private:
    // Interleaved samples.
    struct Chunk {
        std::vector<float> samples;
        double time = 0;  // of the first
    };

    void Run(const CodecInfo& info);
    std::vector<float> Convert(const AVFrame& frame);
    void Push(uint32_t serial, Chunk chunk);
    static void Play(void* context, uint8_t* stream, int size);
    bool IsReady();
    void Align();
    int Copy(float* output, int frames);
    void Use(size_t count);

    Exchange& exchange;
    Clock& clock;
    Report& report;
    SDL_AudioDeviceID device = 0;     // owned
    double latency = 0;               // seconds from Play to the loudspeaker
    SwrContext* converter = nullptr;  // owned; the decoder's thread alone
    std::vector<int64_t> converted;   // rate, channels, sample format that it was made for

    // The mutex guards all that follows. `chunks` holds `queued` samples a channel of `current` alone, the first of them
    // `used` samples into the first chunk. `room` is signalled when `queued` falls, `current` changes or `finished` is set.
    // SDL's thread takes the mutex for a copy only; nobody who holds it waits for SDL.
    std::mutex mutex;
    std::condition_variable room;
    std::deque<Chunk> chunks;
    size_t used = 0, queued = 0;
    uint32_t current = 0;  // serial
    bool started = false;  // by Start
    bool aligned = false;  // the first sample is that of the time of Start
    double startTime = 0;
    size_t lead = 0;       // samples of silence before the first
    bool ended = false;    // no more chunks follow
    bool starved = false;  // waits until there is enough again
    bool finished = false;
    std::thread thread;
};

}  // namespace player
