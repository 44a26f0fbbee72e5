// The clips and the patches that ffmpeg cannot write by itself.
#include "realfiles/Clips.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sstream>

namespace kivmp4::test {

namespace {

struct Directory {
    std::string path = (std::filesystem::temp_directory_path() / "clipsXXXXXX").string();
    Directory() { EXPECT_NE(mkdtemp(path.data()), nullptr); }
    ~Directory() { std::filesystem::remove_all(path); }
};

uint64_t Read(const Bytes& file, size_t at, size_t count) {
    uint64_t value = 0;
    for (size_t i = 0; i < count; i++)
        value = value << 8 | file.at(at + i);
    return value;
}

// Rewrites a file: `change` sees each leaf box below moov/trak/.../stbl, by type and content, and may answer new content.
using Change = std::function<Bytes(std::string& type, const Bytes& content)>;
Bytes Rewrite(const Bytes& file, const Change& change) {
    Bytes out;
    for (size_t at = 0; at + 8 <= file.size();) {
        const size_t size = Read(file, at, 4);
        std::string type(file.begin() + static_cast<std::ptrdiff_t>(at) + 4, file.begin() + static_cast<std::ptrdiff_t>(at) + 8);
        const Bytes content(file.begin() + static_cast<std::ptrdiff_t>(at) + 8, file.begin() + static_cast<std::ptrdiff_t>(at + size));
        const bool container = std::string("moov trak edts mdia minf stbl").find(type) != std::string::npos;
        const Bytes changed = container ? Rewrite(content, change) : change(type, content);
        out = Join({out, Box(type, changed)});
        at += size;
    }
    return out;
}

// All changes keep offsets: moov lies last in these clips.
Bytes WideOffsets(const Bytes& file) {
    return Rewrite(file, [](std::string& type, const Bytes& content) {
        if (type != "stco")
            return content;
        type = "co64";
        Put out;
        out.U64(Read(content, 0, 8));
        for (size_t at = 8; at < content.size(); at += 4)
            out.U64(Read(content, at, 4));
        return Bytes(out);
    });
}

// The only track's samples with lengths of two bytes instead of four, one chunk a sample: ftyp, mdat, moov.
Bytes ShortLengths(const Bytes& file) {
    const auto part = [&](size_t from, size_t size) { return Bytes(&file.at(from), &file.at(from) + size); };
    SaveFile(TemporaryPath("long.mp4"), file);
    std::istringstream lines(Shell(std::string(FFPROBE) + " -v error -show_entries packet=size,pos -of csv=p=0 " + TemporaryPath("long.mp4")));
    Put data, sizes, offsets;
    size_t at = 0, end = 0, moov = 0;
    const Bytes ftyp = Box("ftyp", Put().Text("isom").U32(0));
    uint32_t count = 0;
    const auto written = [&] { return static_cast<const Bytes&>(data).size(); };
    for (std::string line; std::getline(lines, line); count++) {
        const size_t before = written();
        offsets.U32(ftyp.size() + 8 + before);
        at = std::stoul(line.substr(line.find(',') + 1));
        for (end = at + std::stoul(line); at < end; at += 4 + Read(file, at, 4))
            data.Raw(Prefixed(2, {part(at + 4, Read(file, at, 4))}));
        sizes.U32(written() - before);
    }
    while (Read(file, moov + 4, 4) != 0x6D6F6F76)
        moov += Read(file, moov, 4);
    const Bytes changed = Rewrite(part(moov, file.size() - moov), [&](std::string& type, const Bytes& content) {
        Bytes copy = content;
        if (type == "stsd")
            copy.at(std::string(copy.begin(), copy.end()).find("avcC") + 8) = 0xFD;
        return type == "stsz"   ? Bytes(Put().U64(0).U32(count).Raw(sizes))
               : type == "stsc" ? Bytes(Put().U32(0).U32(1).U32(1).U32(1).U32(1))
               : type == "stco" ? Bytes(Put().U32(0).U32(count).Raw(offsets))
                                : copy;
    });
    return Join({ftyp, Box("mdat", data), changed});
}

}  // namespace

#define VIDEO "-f lavfi -i testsrc2=size=128x96:rate=25:duration=2 "
#define SOUND "-f lavfi -i sine=frequency=440:sample_rate=44100:duration=2 "
#define X264 "-c:v libx264 -pix_fmt yuv420p -threads 1 "
const std::vector<Clip> kClips = {
    {"baseline.mp4", VIDEO X264 "-profile:v baseline -g 12", "h"},
    {"main.m4v", VIDEO X264 "-profile:v main -bf 0 -g 25 -f mp4", "h"},
    {"reordered.mp4", VIDEO SOUND X264 "-preset medium -bf 3 -g 10 -c:a aac", "ha"},
    {"slices.mp4", VIDEO X264 "-slices 4 -g 20", "h"},
    {"shortlengths.mp4", VIDEO X264 "-slices 3 -bf 2 -g 20", "h", ShortLengths},
    {"faststart.mp4", VIDEO SOUND X264 "-g 15 -c:a aac -ac 2 -movflags faststart", "ha"},
    {"onekey.mov", VIDEO X264 "-g 300", "h"},
    {"allkeys.mp4", VIDEO SOUND X264 "-g 1 -c:a aac", "ha"},
    {"logarithmic.mov", VIDEO SOUND X264 "-g 10 -c:a pcm_alaw", "hc"},
    {"linear.mov", VIDEO SOUND X264 "-g 10 -c:a pcm_s16le", "h-"},
    {"wave.mov", VIDEO SOUND X264 "-g 10 -c:a aac", "hc"},
    {"mono.m4a", SOUND "-c:a aac -ac 1", "a"},
    {"surround.m4a", SOUND "-c:a aac -ac 6 -ar 48000", "a"},
    {"visual.mp4", VIDEO SOUND "-c:v mpeg4 -g 12 -bf 0 -c:a aac", "va"},
    {"many.mp4", VIDEO SOUND X264 "-map 0 -map 0 -map 1 -map 1 -disposition:v default -disposition:a default -g 10 -c:a aac -ar:a:1 22050", "hhaa"},
    {"alternatives.mp4", VIDEO SOUND X264 "-map 0 -map 1 -map 0 -g 10 -c:a aac", "ha-"},
    {"large.mp4", "-f lavfi -i testsrc2=size=640x480:rate=10:duration=1,noise=alls=100:allf=t " SOUND X264 "-preset ultrafast -qp 2 -g 5 -c:a aac", "ha"},
    {"wide.mp4", VIDEO SOUND X264 "-g 10 -c:a aac", "ha", WideOffsets},
    {"delayed.mp4", "-itsoffset 0.4 " VIDEO SOUND X264 "-fps_mode passthrough -bf 0 -g 10 -c:a aac", "ha", nullptr, 36000},
};

std::ostream& operator<<(std::ostream& out, const Clip& clip) {
    return out << clip.name;
}

const Clip& ClipNamed(const std::string& name) {
    for (const Clip& clip : kClips) {
        if (name == clip.name)
            return clip;
    }
    throw std::out_of_range(name);
}

std::string TemporaryPath(const std::string& name) {
    static const Directory directory;
    return directory.path + "/" + name;
}

Bytes LoadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

void SaveFile(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::string Shell(const std::string& command) {
    const std::string errors = TemporaryPath("errors.txt");
    std::FILE* pipe = popen((command + " 2>" + errors).c_str(), "r");
    std::string out;
    char part[4096];
    for (size_t got; pipe && (got = std::fread(part, 1, sizeof part, pipe)) > 0;)
        out.append(part, got);
    EXPECT_EQ(pipe ? pclose(pipe) : -1, 0) << command;
    const Bytes text = LoadFile(errors);
    EXPECT_TRUE(text.empty()) << command << "\n" << std::string(text.begin(), text.end());
    return out;
}

std::string PathOf(const Clip& clip) {
    const std::string path = TemporaryPath(clip.name);
    if (!std::filesystem::exists(path)) {
        Shell(std::string(FFMPEG) + " -nostdin -v error -y " + clip.arguments + " " + path);
        if (clip.patch)
            SaveFile(path, clip.patch(LoadFile(path)));
    }
    return path;
}

std::vector<Stream> StreamsOf(const Clip& clip) {
    std::vector<Stream> all, described;
    uint32_t track = 0;
    for (const char* letter = clip.streams; *letter; letter++)
        all.push_back({.track = *letter == '-' ? 0 : track++, .kind = *letter});
    const std::string probe = std::string(FFPROBE) + " -v error -ignore_editlist 1 -of csv=p=0 ";
    std::istringstream bases(Shell(probe + "-show_entries stream=time_base " + PathOf(clip)));
    std::istringstream packets(Shell(probe + "-show_entries packet=stream_index,pts,dts,duration,size,pos,flags " + PathOf(clip)));
    for (Stream& stream : all) {
        std::string line;
        std::getline(bases, line);
        stream.timescale = static_cast<uint32_t>(std::stoul(line.substr(line.find('/') + 1)));
    }
    for (std::string line; std::getline(packets, line);) {
        std::istringstream fields(line);
        char comma, flag;
        size_t index;
        Packet p = {};
        fields >> index >> comma >> p.pts >> comma >> p.dts >> comma >> p.duration >> comma >> p.size >> comma >> p.position >> comma >> flag;
        EXPECT_TRUE(fields) << line;
        p.isKey = flag == 'K';
        all.at(index).packets.push_back(p);
    }
    for (const Stream& stream : all) {
        if (stream.kind != 'c' && stream.kind != '-')
            described.push_back(stream);
    }
    return described;
}

}  // namespace kivmp4::test
