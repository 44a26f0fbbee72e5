// What passes between the demux thread and the others: commands to it, packets from it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

namespace player {

using TimePoint = std::chrono::steady_clock::time_point;

/// Times are 90 kHz ticks, as the module counts them.
struct Command {
    enum Kind {
        Play,   ///< ends winding and goes on from the key frame shown
        Seek,   ///< to `time`
        Step,   ///< to one key frame after (`direction` 1) or before (-1) `time`, and rests there
        Wind,   ///< by key frames in `direction`, `speed` times as fast as playing or faster
        Finish  ///< ends the demux thread
    };
    Kind kind = Play;
    int64_t time = 0;
    int direction = 0;
    int speed = 0;
    uint32_t serial = 0;  ///< marks all that comes of the command; above those of all earlier commands
};

enum class Stream { Picture, Sound };

/// One coded unit on its way to a decoder, or with `end` the news that no more follow.
struct Packet {
    std::vector<uint8_t> bytes;
    int64_t pts = 0, dts = 0, duration = 0;
    int64_t showFrom = 0;  // what is decoded and over before this time is not shown
    uint32_t serial = 0;   // of the command under which it was read
    bool still = false;    // a single key frame of winding, to be shown at once
    bool end = false;
};

class Exchange {
public:
    /// What the demux thread waits for beside commands.
    enum class Need {
        Nothing,  ///< commands only
        Room,     ///< the decoders have little left to do
        Taken     ///< the last picture has been taken and `until` is past
    };

    /// The window's thread. Packets read under earlier commands are gone when it returns, and the first of this one may
    /// be with the decoders: who expects them must know the serial before. A seek replaces one that still waits.
    void Send(const Command& command);
    /// The demux thread. @return true with a command, false when there is none and `need` is met
    bool Wait(Command& command, Need need, TimePoint until = {});
    /// The demux thread. Drops the packet when a command has come since it was read, or nobody takes the stream.
    void Push(Stream stream, Packet packet);
    /// Any thread, once the streams are known. Those that nobody takes are neither kept nor waited for.
    void SetStreams(bool withPicture, bool withSound);
    /// A decoder. Waits for a packet. @return false when it is time to end
    bool Pop(Stream stream, Packet& packet);
    /// Any thread. Whether packets take up all the memory that they may, so that none come until some are taken.
    bool IsFull();

private:
    struct Queue {
        bool exists = true;
        std::deque<Packet> packets;
    };

    Queue& Of(Stream stream) { return stream == Stream::Picture ? pictures : sounds; }
    bool IsMet(Need need, TimePoint until) const;

    // One mutex guards all that follows. Whenever it is free:
    // - every packet in a queue carries `serial`, the newest command's: Send empties them, Push refuses others;
    // - `bytes` is the sum of the sizes of all packets in the queues;
    // - once `finished` is set it stays, and commands are no longer looked at.
    // Who changes anything of it signals `changed` before or right after giving the mutex back.
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Command> commands;
    Queue pictures, sounds;
    size_t bytes = 0;
    uint32_t serial = 0;
    bool finished = false;
};

}  // namespace player
