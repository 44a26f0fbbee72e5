// Opening: waiting for the size, valid and invalid tracks, durations, file layouts, opening twice.
#include "support/Session.h"

namespace kivmp4::test {
namespace {

TEST(Opening, GivesUpWhenTheSizeStaysUnknown) {
    for (const int64_t answer : {int64_t{0}, int64_t{-1}, std::numeric_limits<int64_t>::min()}) {
        SCOPED_TRACE(answer);
        Session session(Mp4Builder::Build({.tracks = {VideoTrack()}}));
        session.file.unknownSize = answer;
        session.file.unknownAsks = 561;
        session.logLevel = 4;
        ASSERT_TRUE(session.Create());
        const uint32_t before = session.file.SizeAsks(std::this_thread::get_id());
        LogCapture log;
        EXPECT_EQ(session.Open(), -1);
        EXPECT_EQ(session.duration, -1);
        EXPECT_EQ(session.file.SizeAsks(std::this_thread::get_id()) - before, 561u);
        EXPECT_EQ(log.Count("D/ Open [493]: TIMEOUT! OPEN!\n"), 1);
        EXPECT_EQ(session.Open(), 0);  // the 562nd ask is answered
        EXPECT_EQ(session.tracks, 1u);
    }
}

TEST(Opening, WaitsForALateSize) {
    Session session(Mp4Builder::Build({.tracks = {VideoTrack()}}));
    session.file.unknownAsks = 40;
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(session.Deliver().size(), 3u);
}

TEST(Opening, AcceptsATrackByItsBoxes) {
    const Bytes avc = VideoTrack().entry, pps = Hex("68 EE"), none;
    const Bytes shortInfo = Stsd({Box("avc1", Bytes(16))});
    const std::string stsd = "E/ ParseMDIA [518]:  Error parsing STSD box\n", invalid = "E/ Movie [309]:  Invalid Track \n";
    const std::string data = "E/ ParseSTSD [581]:  Invalid data in STSD\n", type = "E/ ParseSTSD [592]:  Unable to parse Elementary Type\n";
    struct Case { const char* name; const char* box; Bytes content; bool valid; std::string line; };
    const Case cases[] = {
        {"as it is",                "none", none, true, "D/ ParseMDIA [479]: Media Language:  und \n"},
        {"no tkhd",                 "tkhd", none, false, invalid},
        {"tkhd of flags alone",     "tkhd", FullBox("tkhd", {}, 0, 1), false, invalid},
        {"disabled",                "tkhd", FullBox("tkhd", Bytes(80), 0, 6), false, invalid},
        {"no mdia",                 "mdia", none, false, invalid},
        {"no mdhd",                 "mdhd", none, false, invalid},
        {"mdhd of 8 bytes",         "mdhd", Words("mdhd", {0}), false, invalid},
        {"no minf",                 "minf", none, false, "E/ ParseMDIA [485]:  No MINF box\n"},
        {"no stbl",                 "stbl", none, false, "E/ ParseMDIA [491]:  No STBL box\n"},
        {"no stsd",                 "stsd", none, false, stsd},
        {"stsd of 4 bytes",         "stsd", FullBox("stsd", {}), false, "E/ ParseSTSD [576]:  Currupted header size\n"},
        {"stsd version 1",          "stsd", Stsd({avc}, 1), false, data},
        {"stsd flags 1",            "stsd", FullBox("stsd", Put().U32(1).Raw(avc), 0, 1), true, "Num of valid tracks: 1 \n"},
        {"two entries",             "stsd", Stsd({avc, avc}), false, data},
        {"entry count without one", "stsd", Words("stsd", {1}), false, "E/ ParseSTSD [587]:  No child present\n"},
        {"unknown entry",           "stsd", Stsd({VideoEntry("zzzz", {})}), false, type},
        {"avc1 without avcC",       "stsd", Stsd({VideoEntry("avc1", Box("pasp", Bytes(8)))}), false, type},
        {"avc1 with an empty avcC", "stsd", Stsd({VideoEntry("avc1", Box("avcC", {}))}), false, type},
        {"avc1 cut short",          "stsd", shortInfo, false, type},
        {"avcC among others",       "stsd", Stsd({VideoEntry("avc1", Join({Box("pasp", Bytes(8)), Box("avcC", AvcC(4, {}, {pps})), Box("btrt", Bytes(12))}))}), true, "valid tracks: 1 "},
        {"mp4v without esds",       "stsd", Stsd({VideoEntry("mp4v", {})}), false, type},
        {"mp4a without esds",       "stsd", Stsd({AudioEntry("mp4a", {})}), true, "valid tracks: 1 "},
        {"mp4a ends in zeros",      "stsd", Stsd({AudioEntry("mp4a", Put().Raw(Esds({0x11, 0x90})).Zero(4), 1)}), true, "valid tracks: 1 "},
        {"first descriptor tag 4",  "stsd", Stsd({AudioEntry("mp4a", Esds({0x11, 0x90}, 0, 4))}), false, type},
        {"descriptor size runs on", "stsd", Stsd({AudioEntry("mp4a", FullBox("esds", Put().U8(3).U32(0xFFFFFF7F)))}), false, type},
        {"esds version 1",          "stsd", Stsd({AudioEntry("mp4a", FullBox("esds", Bytes(30), 1))}), false, type},
        {"decoder config too short", "stsd", Stsd({AudioEntry("mp4a", EsdsAround(Bytes(12)))}), false, type},
        {"samr with damr",          "stsd", Stsd({AudioEntry("samr", Box("damr", Bytes(9)))}), true, "valid tracks: 1 "},
        {"uncompressed",            "stsd", Stsd({VideoEntry("YUY2", {})}), true, "valid tracks: 1 "},
        {"no stsz",                 "stsz", none, true, "W/ ParseMDIA [498]:  Error parsing STSZ box\n"},
        {"stsz version 1",          "stsz", Words("stsz", {5, 3}, 1), true, "W/ ParseMDIA [498]:  Error parsing STSZ box\n"},
        {"no stsc",                 "stsc", none, true, "W/ ParseMDIA [498]:  Error parsing STSZ box\n"},
        {"no stco",                 "stco", none, true, "W/ ParseMDIA [498]:  Error parsing STSZ box\n"},
        {"stss version 1",          "stss", Words("stss", {1, 1}, 1), true, "W/ ParseMDIA [503]:  Error parsing KeyMap box\n"},
        {"no stts",                 "stts", none, true, "W/ ParseMDIA [508]:  Error parsing TimeStamps box\n"},
        {"no stts to expand",       "stts", none, true, "W/ ParseMDIA [535]:  No STTS box present \n"},
        {"no ctts",                 "ctts", none, true, "D/ ParseMDIA [528]: No CTTS box \n"},
        {"no stss",                 "stss", none, true, "W/ ParseMDIA [560]:  No STSS box \n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Movie movie{.tracks = {VideoTrack()}};
        movie.tracks[0].replace[c.box] = c.content;
        LogCapture log;
        Session session(Mp4Builder::Build(movie));
        session.logLevel = 4;
        EXPECT_EQ(session.Open(), c.valid ? 0 : -1);
        EXPECT_EQ(session.duration, c.valid ? 10000 : -1);
        EXPECT_TRUE(log.Has(c.line)) << log.Text();
        EXPECT_EQ(log.Has("E/ Open [518]: ERROR_MP4DEMUX_INVALIDARG2 \n"), !c.valid);
        EXPECT_EQ(KivMp4GetNextUnit(session.demux, &session.unit), c.valid ? 1 : -1);  // no track is enabled
        EXPECT_EQ(log.Has("E/ GetNextUnit [1099]:  No tracks found \n"), !c.valid);
    }
}

TEST(Opening, SkipsInvalidTracks) {
    Movie movie{.tracks = {VideoTrack(), AudioTrack(), AudioTrack()}};
    movie.tracks[1].flags = 0;
    Session session(Mp4Builder::Build(movie));
    session.logLevel = 4;
    LogCapture log;
    ASSERT_EQ(session.Open(), 0);
    EXPECT_EQ(session.tracks, 2u);
    EXPECT_EQ(log.Count("E/ Movie [309]:  Invalid Track \n"), 1);
}

TEST(Opening, StatesTheDuration) {
    struct Case { const char* name; uint8_t version; uint32_t timescale; int64_t units, expected; };
    const Case cases[] = {
        {"whole seconds", 0, 600, 6000, 100000},          {"64 bits", 1, 600, 6000, 100000},
        {"cut off", 0, 90000, 10, 1},                     {"no timescale", 0, 0, 6000, 0},
        {"unknown", 0, 1000, -1, -10},                    {"wraps", 1, 1000, std::numeric_limits<int64_t>::max(), -10},
        {"beyond 32 bits", 1, 90000, 90000LL * 500000, 5000000000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Session session(Mp4Builder::Build({.tracks = {AudioTrack()}, .timescale = c.timescale, .duration = c.units, .headerVersion = c.version}));
        ASSERT_EQ(session.Open(), 0);
        EXPECT_EQ(session.duration, c.expected);
    }
}

TEST(Opening, FindsTheMovieInEveryLayout) {
    const Bytes cut = Hex("00000100 66726565 00");
    struct Case { const char* name; Movie movie; };
    const Case cases[] = {
        {"moov last",            {.moovLast = true}},
        {"64-bit mdat",          {.wideMdat = true}},
        {"mdat to the end",      {.openMdat = true}},
        {"boxes in front",       {.front = Join({Box("free", Bytes(5)), Box64("wide", {}), Box("skip", Bytes(70000))})}},
        {"a second moov behind", {.back = Box("moov", {})}},
        {"cut box behind",       {.moovLast = true, .back = cut}},
        {"64-bit ftyp",          {.replace = {{"ftyp", Box64("ftyp", Bytes(8))}}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Movie movie = c.movie;
        movie.tracks = {VideoTrack(), AudioTrack()};
        Session session(Mp4Builder::Build(movie));
        EXPECT_TRUE(session.Start());
        EXPECT_EQ(session.Deliver().size(), 7u);
    }
}

TEST(Opening, RefusesToOpenTwice) {
    Session session(Mp4Builder::Build({.tracks = {VideoTrack(), AudioTrack()}}));
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(session.Deliver(3).size(), 3u);
    EXPECT_EQ(session.Open(), -1);
    EXPECT_EQ(session.duration, -1);
    EXPECT_EQ(session.Deliver().size(), 4u);
}

}  // namespace
}  // namespace kivmp4::test
