// Clips that ffmpeg makes when they are first asked for, and what ffprobe says of them.
#pragma once

#include "support/Mp4Builder.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace kivmp4::test {

struct Packet {
    int64_t pts, dts, duration;
    std::ptrdiff_t size, position;
    bool isKey;
};
struct Stream {
    uint32_t track = 0;  // as the module counts
    char kind = 0;
    uint32_t timescale = 0;
    int64_t delay = 0;  // by the edit list, 90 kHz ticks
    std::vector<Packet> packets = {};
};

struct Clip {
    const char* name;       // with its extension
    const char* arguments;  // of ffmpeg, between its general options and the output
    const char* streams;    // one letter each: h H.264, v MPEG-4 visual, a AAC, c counted but not described, - not counted
    int64_t videoDelay = 0;
};

#define VIDEO "-f lavfi -i testsrc2=size=128x96:rate=25:duration=1.2 "
#define SOUND "-f lavfi -i sine=frequency=440:sample_rate=44100:duration=1.2 "
#define X264 "-c:v libx264 -pix_fmt yuv420p -threads 1 "
const std::vector<Clip> kClips = {
    {"baseline.mp4", VIDEO X264 "-profile:v baseline -g 12", "h"},
    {"main.m4v", VIDEO X264 "-profile:v main -bf 0 -slices 4 -g 20 -f mp4", "h"},
    {"reordered.mp4", VIDEO SOUND X264 "-bf 3 -g 10 -c:a aac", "ha"},
    {"faststart.mp4", VIDEO SOUND X264 "-g 15 -c:a aac -ac 2 -movflags faststart", "ha"},
    {"onekey.mov", VIDEO X264 "-g 300", "h"},
    {"allkeys.mp4", VIDEO SOUND X264 "-g 1 -c:a aac", "ha"},
    {"logarithmic.mov", VIDEO SOUND X264 "-g 10 -c:a pcm_alaw", "hc"},
    {"linear.mov", VIDEO SOUND X264 "-g 10 -c:a pcm_s16le", "h-"},
    {"wave.mov", VIDEO SOUND X264 "-g 10 -c:a aac", "hc"},
    {"mono.m4a", SOUND "-c:a aac -ac 1", "a"},
    {"surround.m4a", SOUND "-c:a aac -ac 6 -ar 48000", "a"},
    {"visual.mp4", VIDEO SOUND "-c:v mpeg4 -g 12 -bf 0 -c:a aac", "va"},
    {"many.mp4", VIDEO SOUND X264 "-map 0 -map 0 -map 1 -map 1 -disposition:v default -disposition:a default "
                 "-g 10 -c:a aac -ar:a:1 22050", "hhaa"},
    {"alternatives.mp4", VIDEO SOUND X264 "-map 0 -map 1 -map 0 -g 10 -c:a aac", "ha-"},
    {"large.mp4", "-f lavfi -i testsrc2=size=640x480:rate=10:duration=1,noise=alls=100:allf=t " SOUND X264
                  "-preset ultrafast -qp 2 -g 5 -c:a aac", "ha"},
    {"delayed.mp4", "-itsoffset 0.4 " VIDEO SOUND X264 "-fps_mode passthrough -bf 0 -g 10 -c:a aac", "ha", 36000},
};
inline std::ostream& operator<<(std::ostream& out, const Clip& clip) {
    return out << clip.name;
}

/// A path in a directory that goes with the process.
inline std::string TemporaryPath(const std::string& name) {
    struct Directory {
        std::string path = (std::filesystem::temp_directory_path() / "clipsXXXXXX").string();
        Directory() { EXPECT_NE(mkdtemp(path.data()), nullptr); }
        ~Directory() { std::filesystem::remove_all(path); }
    };
    static const Directory directory;
    return directory.path + "/" + name;
}

inline std::string SaveFile(const std::string& name, const Bytes& bytes) {
    std::ofstream out(TemporaryPath(name), std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return TemporaryPath(name);
}

/// What was written to standard output; a failure, or anything on standard error, fails the test with the command.
inline std::istringstream Shell(const std::string& command) {
    std::FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    std::string out;
    for (int c; (c = std::fgetc(pipe)) != EOF;)
        out += static_cast<char>(c);
    EXPECT_EQ(pclose(pipe), 0) << command << "\n" << out;
    return std::istringstream(out);
}

/// A clip's file with the streams that the module describes, times without edit lists. They are made only once.
struct Media {
    std::string path;
    Bytes bytes;
    std::vector<Stream> streams;
};
inline const Media& MediaOf(const Clip& clip) {
    static std::map<std::string, Media> made;
    Media& media = made[clip.name];
    if (!media.path.empty())
        return media;
    media.path = TemporaryPath(clip.name);
    Shell(std::string(FFMPEG) + " -nostdin -v error -y " + clip.arguments + " " + media.path);
    std::ifstream in(media.path, std::ios::binary);
    media.bytes = Bytes(std::istreambuf_iterator<char>(in), {});
    uint32_t track = 0;
    for (const char* kind = clip.streams; *kind; kind++) {
        const int64_t delay = *kind == 'a' ? 0 : clip.videoDelay;
        media.streams.push_back({.track = *kind == '-' ? 0 : track++, .kind = *kind, .delay = delay});
    }
    const std::string entries = "packet=stream_index,pts,dts,duration,size,pos,flags:stream=index,time_base ";
    std::istringstream lines = Shell(std::string(FFPROBE) + " -v error -ignore_editlist 1 -of csv -show_entries " + entries + media.path);
    for (std::string line; std::getline(lines, line) && !line.empty();) {  // side data ends in an empty line
        const bool isPacket = line.rfind("packet,", 0) == 0;
        std::replace(line.begin(), line.end(), ',', ' ');
        std::istringstream fields(line.substr(line.find(' ')));
        size_t index = 0;
        Packet p = {};
        char flag = 0, one = 0, slash = 0;
        fields >> index;
        Stream& stream = media.streams.at(index);
        if (isPacket)
            fields >> p.pts >> p.dts >> p.duration >> p.size >> p.position >> flag;
        else
            fields >> one >> slash >> stream.timescale;
        EXPECT_TRUE(fields) << line;
        p.isKey = flag == 'K';
        if (isPacket)
            stream.packets.push_back(p);
    }
    std::erase_if(media.streams, [](const Stream& stream) { return stream.kind == 'c' || stream.kind == '-'; });
    return media;
}

}  // namespace kivmp4::test
