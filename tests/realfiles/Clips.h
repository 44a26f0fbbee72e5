// Clips that ffmpeg makes once per process, and what ffprobe says of them.
#pragma once

#include "support/Mp4Builder.h"

#include <string>
#include <vector>

namespace kivmp4::test {

/// What was written to standard output; a failure, or anything on standard error, fails the test with the command.
std::string Shell(const std::string& command);
Bytes LoadFile(const std::string& path);
void SaveFile(const std::string& path, const Bytes& bytes);
/// A path in the directory that goes with the process.
std::string TemporaryPath(const std::string& name);

struct Clip {
    const char* name;      // with its extension
    const char* arguments; // of ffmpeg, between its general options and the output
    const char* streams;   // one letter each: h H.264, v MPEG-4 visual, a AAC, c counted but not described, - not counted
    Bytes (*patch)(const Bytes& file) = nullptr;
    int64_t videoDelay = 0;  // by the edit list, 90 kHz ticks
};
std::ostream& operator<<(std::ostream& out, const Clip& clip);
extern const std::vector<Clip> kClips;
const Clip& ClipNamed(const std::string& name);

struct Packet {
    int64_t pts, dts, duration, size, position;
    bool isKey;
};
struct Stream {
    uint32_t track = 0;  // as the module counts
    char kind = 0;
    uint32_t timescale = 0;
    std::vector<Packet> packets = {};
};
/// The clip's file, made at the first call; and its described streams, times without edit lists.
std::string PathOf(const Clip& clip);
std::vector<Stream> StreamsOf(const Clip& clip);

}  // namespace kivmp4::test
