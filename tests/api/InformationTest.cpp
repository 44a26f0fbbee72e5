// Track information and the small exports.
#include "support/Session.h"

namespace kivmp4::test {
namespace {

// The record of a file's only track; `result` of 0 is expected unless said otherwise.
CodecInfo InfoOf(const Bytes& entry, const std::string& path = "a.mp4", int32_t expected = 0, std::string* log = nullptr) {
    Track track = VideoTrack();
    track.entry = entry;
    Session session(Mp4Builder::Build({.tracks = {track}}));
    session.path = path;
    session.logLevel = log ? 2 : 0;
    LogCapture capture;
    CodecInfo info = {};
    EXPECT_EQ(session.Open(), 0);
    EXPECT_EQ(KivMp4GetTrackInfo(session.demux, 0, &info), expected);
    EXPECT_EQ(KivMp4GetTrackInfo(session.demux, 1, &info), -1);
    if (expected == 0) {
        EXPECT_STREQ(info.language, "und");
    }
    if (log)
        *log = capture.Text();
    return info;
}

Bytes AvcEntry(const Sps& sps) {
    return VideoEntry("avc1", Box("avcC", AvcC(4, {SpsNal(sps)}, {})), 1920, 1080);
}

TEST(Information, DescribesH264) {
    const char* none = "";
    const char* frames = "W/ ExtractSPSInformation ";
    struct Case { const char* name; Sps sps; uint32_t level, buffering; int64_t aspect; const char* log; };
    const Case cases[] = {
        {"baseline",              {.profile = 66, .level = 10},                                              10, 4, 0, none},
        {"1088 lines, level 40",  {.level = 40, .widthMbs = 120, .heightMbs = 68},                           40, 4, 0, none},
        {"1088 lines, level 41",  {.level = 41, .widthMbs = 120, .heightMbs = 68},                           41, 4, 0, none},
        {"1088 lines, level 51",  {.level = 51, .widthMbs = 120, .heightMbs = 68},                           51, 15, 0, none},
        {"too many references",   {.level = 31, .refs = 6, .widthMbs = 80, .heightMbs = 45},                 32, 6, 0, "BufferedFrames[5] < MaxRef[6] \n"},
        {"level not listed",      {.level = 52, .refs = 1},                                                  52, 1, 0, "BufferedFrames[0] < MaxRef[1] \n"},
        {"level 1b",              {.level = 9},                                                              9, 2, 0, "BufferedFrames[0] < MaxRef[2] \n"},
        {"stated above",          {.level = 40, .widthMbs = 120, .heightMbs = 68, .maxDecBuffering = 6},     40, 4, 0, none},
        {"stated below",          {.level = 30, .widthMbs = 45, .heightMbs = 36, .maxDecBuffering = 3},      32, 3, 0, " decoded MaxBuffering[3] < Theoretical[5] \n"},
        {"stated as 1",           {.level = 21, .widthMbs = 44, .heightMbs = 27, .maxDecBuffering = 1},      30, 1, 0, " decoded MaxBuffering[1] < Theoretical[4] \n"},
        {"stated as calculated",  {.level = 10, .maxDecBuffering = 4},                                       10, 4, 0, none},
        {"scaling matrix",        {.level = 10, .scalingMatrix = true},                                      10, 4, 0, none},
        {"4:4:4 scaling matrix",  {.level = 10, .chromaFormat = 3, .scalingMatrix = true},                   10, 4, 0, none},
        {"picture order type 0",  {.level = 10, .pocType = 0, .lengthCode = 12},                             10, 4, 0, none},
        {"picture order type 1",  {.level = 10, .pocType = 1, .pocCycle = {1, 2, 30}},                       10, 4, 0, none},
        {"cropped",               {.level = 10, .cropped = true},                                            10, 4, 0, none},
        {"square samples",        {.level = 10, .aspectIdc = 1},                                             10, 4, 1, none},
        {"aspect 3",              {.level = 10, .aspectIdc = 3},                                             10, 4, 0, none},
        {"aspect 16",             {.level = 10, .aspectIdc = 16},                                            10, 4, 2, none},
        {"aspect 17",             {.level = 10, .aspectIdc = 17},                                            10, 4, 0, "Reserved Aspect Ratio found or Wrong parsing "},
        {"aspect of its own",     {.level = 10, .aspectIdc = 255, .sarWidth = 4, .sarHeight = 3},            10, 4, 0, none},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string log;
        const CodecInfo info = InfoOf(AvcEntry(c.sps), "a.mp4", 0, &log);
        EXPECT_EQ(info.kind, 0u);
        EXPECT_EQ(info.subtype, 1u);
        EXPECT_EQ(info.profile, c.sps.profile);
        EXPECT_EQ(info.level, c.level);
        EXPECT_EQ(info.refFrames, c.sps.refs);
        EXPECT_EQ(info.decFrameBuffering, c.buffering);
        EXPECT_EQ(info.aspectRatio, c.aspect);
        EXPECT_EQ(info.width, 1920u);
        EXPECT_EQ(info.height, 1080u);
        EXPECT_EQ(info.maxTrackOffset, 1048576u);
        EXPECT_EQ(info.meanSampleDuration, 3333);  // 1 s over 3 samples
        EXPECT_NE(log.find(c.log), std::string::npos) << log;
        EXPECT_EQ(log.find(frames) != std::string::npos, std::string_view(c.log).find("Buffer") != std::string_view::npos) << log;
        EXPECT_EQ(InfoOf(AvcEntry(c.sps), "a.m3d").level, c.level + 100);
    }
}

TEST(Information, KeepsTheStreamWhenTheParameterSetIsRefused) {
    struct Case { const char* name; Bytes record; const char* log; };
    const Bytes whole = AvcC(4, {SpsNal({})}, {});
    const Case cases[] = {
        {"cut short",           Bytes(whole.begin(), whole.begin() + 13), "E/ ReadExpGolombCode ["},
        {"other unit type",     Hex("01 64 00 0B FF E1 0004 60 64 00 0B 00"), ""},
        {"references above 16", AvcC(4, {SpsNal({.refs = 31})}, {}), "Problem parsing Max ref frames \n"},
        {"picture order 3",     AvcC(4, {SpsNal({.pocType = 3})}, {}), "Problem parsing POC \n"},
        {"length code above",   AvcC(4, {SpsNal({.lengthCode = 63})}, {}), "maxBits[5] LeadingZeros[6] \n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string log;
        const CodecInfo info = InfoOf(VideoEntry("avc1", Box("avcC", c.record)), "a.mp4", 0, &log);
        EXPECT_NE(log.find(c.log), std::string::npos) << log;
        EXPECT_NE(log.find("W/ GetH264_SPSInformation ["), std::string::npos) << log;
        EXPECT_EQ(info.subtype, 1u);
        EXPECT_EQ(info.profile + info.level + info.refFrames + info.decFrameBuffering, 0u);
        EXPECT_EQ(Bytes(info.config, info.config + info.configSize), c.record);
    }
}

TEST(Information, DescribesSound) {
    const auto aac = [](std::string_view config, uint8_t flags) { return AudioEntry("mp4a", Esds(Hex(config), flags)); };
    const Bytes wave = Box("wave", Join({Box("frma", Bytes(4)), Esds(Hex("0600 0200 80BB0000 00000000 0400 1000 0000 0000"))}));
    const auto other = [](const char* type, const char* config) { return AudioEntry(type, Esds(Hex(config))); };
    struct Case { const char* name; Bytes entry; int32_t result; uint32_t subtype, rate, channels, bits, bitrate; };
    const Case cases[] = {
        {"44.1 kHz stereo",     aac("1210", 0),    0, 2, 44100, 2, 16, 128000},
        {"48 kHz stereo",       aac("1190", 0x80), 0, 2, 48000, 2, 16, 128000},
        {"24 kHz mono",         aac("1308", 0x40), 0, 2, 24000, 1, 16, 128000},
        {"96 kHz",              aac("1008", 0x20), 0, 2, 96000, 1, 16, 128000},
        {"7.35 kHz",            aac("1608", 0xE0), 0, 2, 7350, 1, 16, 128000},
        {"six channels",        aac("1230", 0),    0, 2, 44100, 6, 16, 128000},
        {"explicit frequency",  aac("1788", 0),    0, 2, 0, 1, 16, 128000},
        {"no configuration",    AudioEntry("mp4a", {}), 0, 2, 0, 0, 16, 0},
        {"wave in version 1",   AudioEntry("mp4a", wave, 1), 0, 4, 48000, 2, 16, 0},
        {"version 2",           AudioEntry("mp4a", Esds(Hex("1190")), 2), 0, 2, 48000, 2, 16, 128000},
        {"a-law header",        other("alaw", "0600 0100 401F0000 401F0000 0100 0800 0000 0000"), 0, 4, 8000, 1, 8, 0},
        {"extra bytes missing", other("alaw", "0600 0100 401F0000 401F0000 0100 0800 0200 0000"), -1, 0, 0, 0, 0, 0},
        {"18 bytes",            other("ulaw", "0700 0100 401F0000 401F0000 0100 0800 0000"), -1, 0, 0, 0, 0, 0},
        {"no header",           AudioEntry("lpcm", {}), -1, 0, 0, 0, 0, 0},
        {"uncompressed video",  VideoEntry("YUY2", {}), -1, 0, 0, 0, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string log;
        const CodecInfo info = InfoOf(c.entry, "a.m3d", c.result, &log);
        EXPECT_EQ(log.find("E/ GetType_AAC [") != std::string::npos, c.channels > 2) << log;
        if (c.result != 0)
            continue;
        EXPECT_EQ(info.kind, 1u);
        EXPECT_EQ(info.subtype, c.subtype);
        EXPECT_EQ(info.sampleRate, c.rate);
        EXPECT_EQ(info.channels, c.channels);
        EXPECT_EQ(info.bitsPerSample, c.bits);
        EXPECT_EQ(info.maxBitrate, c.bitrate);
        EXPECT_EQ(info.avgBitrate, c.bitrate);
        EXPECT_EQ(info.bufferSize, c.bitrate ? 6144u : 0u);
        EXPECT_EQ(info.maxTrackOffset + info.level, 0u);
    }
}

TEST(Information, CopiesConfigurationsBelow256Bytes) {
    for (const size_t size : {255, 256}) {
        const CodecInfo info = InfoOf(AudioEntry("mp4a", Esds(Nal(size))));
        EXPECT_EQ(info.configSize, size == 255 ? 255 : 0);
        EXPECT_EQ(Bytes(info.config, info.config + info.configSize), size == 255 ? Nal(size) : Bytes{});
        EXPECT_EQ(info.reserved2, 0u);
    }
}

TEST(Information, ReadsTheLanguageOfEitherHeader) {
    for (const uint8_t version : {uint8_t{0}, uint8_t{1}}) {
        Track track = AudioTrack();
        track.headerVersion = version;
        track.language = 0x15C7;  // "eng"
        Session session(Mp4Builder::Build({.tracks = {track}}));
        CodecInfo info = {};
        EXPECT_EQ(KivMp4GetTrackInfo(session.demux, 0, &info), -1);
        ASSERT_TRUE(session.Create());
        EXPECT_EQ(KivMp4GetTrackInfo(session.demux, 0, &info), -1);
        ASSERT_EQ(session.Open(), 0);
        EXPECT_EQ(KivMp4GetTrackInfo(session.demux, -1, &info), 0);  // stands for track 0
        EXPECT_STREQ(info.language, "eng");
    }
}

TEST(Information, ConvertsTimes) {
    const uint64_t wrapped = 1ULL << 63;  // times 90000 is 0 in 64 bits
    struct Case { uint64_t (*convert)(uint64_t); uint64_t time, expected; };
    const Case cases[] = {
        {KivMp4TicksToSeconds, 89999, 0}, {KivMp4TicksToSeconds, 90000, 1}, {KivMp4TicksToSeconds, 270000, 3},
        {KivMp4TimeToTicks, 10000, 90000}, {KivMp4TimeToTicks, 1, 9}, {KivMp4TimeToTicks, wrapped + 10000, 90000},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.convert(c.time), c.expected) << c.time;
    EXPECT_EQ(KivMp4Unsupported(), -1);
}

}  // namespace
}  // namespace kivmp4::test
