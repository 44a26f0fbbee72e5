// Pictures on their way from the decoder's thread to the window's.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>

#include "Decoder.h"

namespace player {

/// A decoded picture, or without `frame` the news that no more follow.
struct Picture {
    Frame frame;
    double time = 0, duration = 0;  // seconds
    uint32_t serial = 0;
    bool still = false;
};

/// Decodes pictures a little ahead of the time when they are shown.
class Pictures {
public:
    Pictures(const CodecInfo& info, Exchange& exchange);
    /// The exchange must have been told to finish.
    ~Pictures();
    Pictures(const Pictures&) = delete;
    Pictures& operator=(const Pictures&) = delete;

    /// The window's thread. Drops what carries another serial in front, and tells of the next picture without taking it.
    /// @return null when none is ready; the picture stays as it is until Take
    const Picture* Next(uint32_t serial);
    /// The window's thread, after Next had a picture: takes it.
    Picture Take();
    /// Whether the one after next is ready and its time has come too.
    bool IsOvertaken(double now);

private:
    void Run(const CodecInfo& info);
    void Push(Picture picture);

    Exchange& exchange;
    // The mutex guards both below. Only the window's thread takes pictures out, so one that Next has shown it stays.
    // `room` is signalled when a picture was taken or `finished` set.
    std::mutex mutex;
    std::condition_variable room;
    std::deque<Picture> ready;
    bool finished = false;
    std::thread thread;
};

}  // namespace player
