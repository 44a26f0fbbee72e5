// The demux thread: the only one that calls the module.
#pragma once

#include <KivMp4.h>

#include <cstdint>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Device.h"
#include "Exchange.h"

namespace player {

/// What the file holds that can be played: the first video track and the first AAC track.
struct Movie {
    std::string failure;   // why nothing can be played, else empty
    int64_t duration = 0;  // 90 kHz ticks
    std::optional<CodecInfo> picture, sound;
    bool hasKeyFrames = false;  // without them no stepping and no winding
};

/// Opens the file, obeys commands and delivers packets until it is told to finish.
class Demuxer {
public:
    Demuxer(std::string path, Device& device, Exchange& exchange);
    ~Demuxer() { thread.join(); }
    Demuxer(const Demuxer&) = delete;
    Demuxer& operator=(const Demuxer&) = delete;

    /// Waits until the file is open, or has turned out not to be playable. Call it once.
    Movie Opened() { return opened.get_future().get(); }

private:
    enum class Mode { Resting, Playing, Winding };

    void Run();
    Movie Open();
    bool FindTracks(uint32_t trackCount, Movie& movie);
    void Obey(const Command& command);
    void Advance();
    void DeliverNext();
    void WindOn();
    bool StepKey();
    void EnableSound(bool enable);
    void BeginTrick();
    void EndTrick();
    void Locate(int64_t time);
    bool JumpToKeyBefore(int64_t at, int64_t time);
    void Deliver(Stream stream, bool still);
    void DeliverEnd();
    bool IsPicture() const { return static_cast<int32_t>(unit.trackIndex) == pictureTrack; }

    const std::string path;
    Device& device;
    Exchange& exchange;
    std::promise<Movie> opened;

    // The rest belongs to the demux thread alone.
    std::vector<uint8_t> heap;  // outlives `demux`
    ClientAllocator memory;     // so does this
    Mp4Demux* demux = nullptr;  // owned by Run
    AccessUnit unit{};
    int32_t pictureTrack = -1, soundTrack = -1;
    bool hasKeyFrames = false;
    Mode mode = Mode::Resting;
    bool trick = false;    // between KivMp4FlushFileReader and KivMp4ResumeFileReader; the sound track is disabled
    uint32_t serial = 0;   // of the command that is obeyed
    int64_t showFrom = 0;  // Playing: where the last seek leads
    int64_t windFrom = 0;  // Winding: time of the key frame delivered last
    int direction = 0, speed = 0;
    TimePoint nextStep;
    std::thread thread;  // begins when all else is ready
};

}  // namespace player
