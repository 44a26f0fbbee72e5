// Opening: waiting for the size, valid and invalid tracks, layouts, forged tables, and what is told of a track.
#include "support/Session.h"
#include "support/Sps.h"

#include <tuple>

namespace kivmp4::test {
namespace {

TEST(Opening, AsksForTheSize561Times) {
    const std::tuple<uint32_t, int64_t, int32_t> cases[] = {
        {559, -1, 0}, {560, 0, -1}, {560, std::numeric_limits<int64_t>::min(), -1}};
    for (const auto& [unknown, answer, result] : cases) {  // the answer to the last ask comes too late
        SCOPED_TRACE(answer);
        Session session({.tracks = {VideoTrack()}});
        session.file.firstSize = answer;
        session.file.firstAsks = unknown;
        session.logLevel = 4;
        LogCapture log;
        EXPECT_EQ(session.Open(), result);
        EXPECT_EQ(session.duration, result == 0 ? 10000 : -1);
        EXPECT_EQ(log.Has("D/ Open [493]: TIMEOUT! OPEN!\n"), result < 0);
        EXPECT_EQ(session.Open(), -1 - result);  // may be tried again, and works once
    }
}

// Long tables come from the player's memory, as do their arrays when the heap is full.
TEST(Opening, TellsOfTablesWithoutMemory) {
    const auto table = [](const char* type, uint32_t words) {
        return FullBox(type, Put().U32(40000).Each(Numbers(40000 * words, 1), 4));
    };
    const Bytes syncs = table("stss", 1), times = table("stts", 2), offsets = table("ctts", 2);
    const std::tuple<const char*, const char*, Bytes, uint32_t, std::string> cases[] = {
        {"sync samples", "stss", syncs, 2, "E/ ParseSTSS [652]:  Cannot allocate memory of size(160000)\n"},
        {"sample counts", "stts", times, 1, "D/ ParseSTTS [673]:  Cannot allocate memory of size(160000) \n"},
        {"deltas", "stts", times, 2, "E/ ParseSTTS [680]:  Cannot allocate memory of size(160000) \n"},
        {"decode times", "stts", times, 3, "E/ ParseSTTS [697]:  Unable to allcoate enough memory ! \n"},
        {"composition counts", "ctts", offsets, 1, "D/ ParseMDIA [528]: No CTTS box \n"},
        {"composition offsets", "ctts", offsets, 3,
         "E/ ParseCTTS [924]:  Cannot allocate memory for CTTS box, required free space (320000)  \n"},
    };
    for (const auto& [name, type, box, refusal, line] : cases) {
        SCOPED_TRACE(name);
        Movie movie{.tracks = {VideoTrack()}};
        movie.tracks[0].replace[type] = box;
        Session session(Mp4Builder::Build(movie), 250 << 10);
        session.memory.failing.first = refusal;
        session.memory.failing.count = 1;
        session.logLevel = 4;
        LogCapture log;
        ASSERT_TRUE(session.Start());
        EXPECT_TRUE(log.Has(line)) << log.Text();
        EXPECT_EQ(session.Deliver().size(), 3u);
    }
}

TEST(Opening, StatesTheDurationInAWideFile) {
    const uint32_t most = 0xFFFFFFFF;
    const std::tuple<const char*, Numbers, uint8_t, int64_t> cases[] = {
        {"a second", {0, 0, 1000, 1000}, 0, 10000}, {"cut off", {0, 0, 90000, 10}, 0, 1},
        {"no timescale", {0, 0, 0, 6000}, 0, 0},    {"unknown", {0, 0, 1000, most}, 0, -10},
        {"header too short", {0, 0, 600}, 0, 0},    {"wraps", {0, 0, 0, 0, 1000, 0x7FFFFFFF, most}, 1, -10},
    };
    for (const auto& [name, words, version, duration] : cases) {
        SCOPED_TRACE(name);
        Movie movie{.tracks = {VideoTrack(), AudioTrack()}, .wide = true, .mdatBox = Box64};
        movie.tracks[1].samples = {Nal(50, 1), Nal(50, 2), Nal(50, 3)};
        movie.tracks[1].replace["stsz"] = Words("stsz", {50, 3});
        movie.replace["mvhd"] = Words("mvhd", words, version);
        Session session(movie);
        ASSERT_TRUE(session.Start());
        EXPECT_EQ(session.duration, duration);
        const std::vector<Unit> units = session.Deliver();
        ASSERT_EQ(units.size(), 6u);
        EXPECT_EQ(units.back().bytes, Nal(50, 3));
    }
}

// The record of a file's only track, whose language is English.
CodecInfo InfoOf(const Bytes& entry, const std::string& path = "a.mp4", int32_t expected = 0,
                 std::string* log = nullptr) {
    Track track = VideoTrack();
    track.entry = entry;
    track.replace["mdhd"] = Words("mdhd", {0, 0, 0, 0, 90000, 0, 0, 0x15C70000}, 1);
    Session session({.tracks = {track}});
    session.path = path;
    session.logLevel = 2;
    LogCapture capture;
    CodecInfo info = {};
    EXPECT_EQ(session.Open(), 0);
    EXPECT_EQ(KivMp4GetTrackInfo(session.demux, 0, &info), expected);
    if (expected == 0) {
        EXPECT_STREQ(info.language, "eng");
        EXPECT_EQ(info.meanSampleDuration, info.kind == 0 ? 3333 : 0);  // 1 s over 3 samples
        EXPECT_EQ(info.maxTrackOffset, info.kind == 0 ? 1048576u : 0u);
    }
    if (log)
        *log = capture.Text();
    return info;
}

Bytes AvcEntry(const Bytes& avcC) { return VideoEntry("avc1", Box("avcC", avcC), 1920, 1080); }

TEST(Information, DescribesH264) {
    const auto with = [](const Sps& sps) { return AvcC(4, {sps}, {}); };
    const Bytes cut = Hex("01 64 00 0B FF E1 0004 67 64 00 0B");
    const std::string none, refused = "W/ GetH264_SPSInformation [560]:  H264 SPS not parsed  \n";
    const std::tuple<const char*, Bytes, uint32_t, uint32_t, uint32_t, uint32_t, int64_t, std::string> cases[] = {
        {"baseline", with({.profile = 66}), 66, 10, 2, 4, 0, none},
        {"1088 lines, level 51", with({.level = 51, .width = 120, .height = 68}), 100, 51, 2, 15, 0, none},
        {"too many references", with({.level = 31, .refs = 6, .width = 80, .height = 45}), 100, 32, 6, 6, 0,
         "[5] < MaxRef[6] \n"},
        {"level not listed", with({.level = 52, .refs = 1}), 100, 52, 1, 1, 0, "[0] < MaxRef[1] \n"},
        {"stated below", with({.level = 30, .width = 45, .height = 36, .buffering = 3}), 100, 32, 2, 3, 0,
         "[3] < Theoretical[5] \n"},
        {"stated above", with({.buffering = 9}), 100, 10, 2, 4, 0, none},
        {"stated as 1", with({.level = 21, .width = 44, .height = 27, .buffering = 1}), 100, 30, 2, 1, 0,
         "[1] < Theoretical[4] \n"},
        {"4:4:4 with a matrix", with({.chromaFormat = 3, .scalingMatrix = true}), 100, 10, 2, 4, 0, none},
        {"square pixels", with({.aspect = 1}), 100, 10, 2, 4, 1, none},
        {"aspect 17", with({.aspect = 17}), 100, 10, 2, 4, 0, "Reserved Aspect Ratio found or Wrong parsing \n"},
        {"aspect of its own", with({.aspect = 255}), 100, 10, 2, 4, 0, none},
        {"no aspect", with({.overscan = true}), 100, 10, 2, 4, 0, " No Aspect ratio information present \n"},
        {"cut short", cut, 0, 0, 0, 0, 0, "E/ ReadExpGolombCode ["},
    };
    for (const auto& [name, record, profile, level, refs, buffering, aspect, line] : cases) {
        SCOPED_TRACE(name);
        std::string log;
        const CodecInfo info = InfoOf(AvcEntry(record), "a.mp4", 0, &log);
        const Numbers described = {info.kind,    info.subtype, info.width,     info.height,
                                   info.profile, info.level,   info.refFrames, info.decFrameBuffering};
        EXPECT_EQ(described, (Numbers{0, 1, 1920, 1080, profile, level, refs, buffering}));
        EXPECT_EQ(info.aspectRatio, aspect);
        EXPECT_EQ(Bytes(info.config, info.config + info.configSize), record);
        EXPECT_NE(log.find(line), std::string::npos) << log;
        EXPECT_EQ(log.find(refused) != std::string::npos, profile == 0) << log;
        EXPECT_EQ(log.find("W/ ExtractSPSInformation [") != std::string::npos, line.find('<') != std::string::npos)
            << log;
        EXPECT_EQ(InfoOf(AvcEntry(record), "a.m3d").level, level + 100);
    }
}

TEST(Information, DescribesSound) {
    const auto aac = [](const char* config, uint8_t flags) { return AudioEntry("mp4a", Esds(Hex(config), flags)); };
    const auto other = [](const char* type, const char* config) { return AudioEntry(type, Esds(Hex(config))); };
    const Bytes wave =
        Box("wave", Join({Box("frma", Bytes(4)), Esds(Hex("0600 0200 80BB0000 00000000 0400 1000 0000 0000"))}));
    const std::tuple<const char*, Bytes, int32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t> cases[] = {
        {"48 kHz stereo", aac("1190", 0x80), 0, 2, 48000, 2, 16, 128000},
        {"7.35 kHz", aac("1608", 0xE0), 0, 2, 7350, 1, 16, 128000},
        {"six channels", aac("1230", 0), 0, 2, 44100, 6, 16, 128000},
        {"explicit frequency", aac("1788", 0), 0, 2, 0, 1, 16, 128000},
        {"no configuration", AudioEntry("mp4a", {}), 0, 2, 0, 0, 16, 0},
        {"wave in version 1", AudioEntry("mp4a", wave, 1), 0, 4, 48000, 2, 16, 0},
        {"version 2", AudioEntry("mp4a", Esds(Hex("1190")), 2), 0, 2, 48000, 2, 16, 128000},
        {"a-law header", other("alaw", "0600 0100 401F0000 401F0000 0100 0800 0000 0000"), 0, 4, 8000, 1, 8, 0},
        {"extra bytes missing", other("alaw", "0600 0100 401F0000 401F0000 0100 0800 0200 0000"), -1, 0, 0, 0, 0, 0},
        {"18 bytes", other("ulaw", "0700 0100 401F0000 401F0000 0100 0800 0000"), -1, 0, 0, 0, 0, 0},
        {"no header", AudioEntry("lpcm", {}), -1, 0, 0, 0, 0, 0},
        {"uncompressed video", VideoEntry("YUY2", {}), -1, 0, 0, 0, 0, 0},
    };
    for (const auto& [name, entry, result, subtype, rate, channels, bits, bitrate] : cases) {
        SCOPED_TRACE(name);
        std::string log;
        const CodecInfo info = InfoOf(entry, "a.m3d", result, &log);
        EXPECT_EQ(log.find("E/ GetType_AAC [") != std::string::npos, channels > 2) << log;
        const Numbers described = {info.kind,       info.subtype,    info.sampleRate, info.channels, info.bitsPerSample,
                                   info.maxBitrate, info.avgBitrate, info.bufferSize, info.level};
        const uint32_t buffer = bitrate ? 6144 : 0;
        if (result == 0) {
            EXPECT_EQ(described, (Numbers{1, subtype, rate, channels, bits, bitrate, bitrate, buffer, 0}));
        }
    }
    const uint32_t rates[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                22050, 16000, 12000, 11025, 8000,  7350};
    for (uint32_t index = 0; index < 16; index++)  // the last three tell no rate, or one of their own
        EXPECT_EQ(InfoOf(AudioEntry("mp4a", Esds(Put().U16(2 << 11 | index << 7 | 2 << 3)))).sampleRate, rates[index])
            << index;
    for (const size_t size : {255, 256}) {  // larger configurations are not copied
        const CodecInfo info = InfoOf(AudioEntry("mp4a", Esds(Nal(size))));
        EXPECT_EQ(Bytes(info.config, info.config + info.configSize), size == 255 ? Nal(size) : Bytes{});
        EXPECT_EQ(info.reserved2, 0u);
    }
}

}  // namespace
}  // namespace kivmp4::test
