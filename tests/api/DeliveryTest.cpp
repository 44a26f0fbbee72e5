// Delivery: order across tracks, payload formats, times, flags, growth of the payload block.
#include "support/Session.h"

namespace kivmp4::test {
namespace {

std::vector<uint32_t> TracksOf(const std::vector<Unit>& units) {
    std::vector<uint32_t> tracks;
    for (const Unit& unit : units)
        tracks.push_back(unit.track);
    return tracks;
}

TEST(Delivery, FollowsTheFile) {
    struct Case { const char* name; std::vector<size_t> order; uint32_t perChunk; std::vector<uint32_t> expected; };
    const Case cases[] = {
        {"alternating",       {0, 1, 0, 1, 0},    1, {0, 1, 0, 1, 0}},
        {"second in front",   {1, 1, 0, 0, 0},    1, {1, 1, 0, 0, 0}},
        {"chunks of two",     {0, 1, 0},          2, {0, 0, 1, 1, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Movie movie{.tracks = {VideoTrack(3), AudioTrack(2)}, .order = c.order};
        movie.tracks[0].samplesPerChunk = movie.tracks[1].samplesPerChunk = c.perChunk;
        Session session(Mp4Builder::Build(movie));
        ASSERT_TRUE(session.Start());
        const std::vector<Unit> units = session.Deliver();
        EXPECT_EQ(TracksOf(units), c.expected);
        EXPECT_EQ(session.result, 1);
        size_t next[2] = {};
        for (const Unit& unit : units) {
            const Bytes& sample = movie.tracks[unit.track].samples[next[unit.track]++];
            EXPECT_EQ(Bytes(unit.bytes.end() - 8, unit.bytes.end()), Bytes(sample.end() - 8, sample.end()));
        }
    }
}

TEST(Delivery, ServesTheLowerTrackAtEqualOffsets) {
    Movie movie{.tracks = {AudioTrack(2), AudioTrack(2)}};
    const Mp4File file = Mp4Builder::File(movie);
    for (Track& track : movie.tracks)
        track.replace["stco"] = Words("stco", {2, static_cast<uint32_t>(file.offsets[0][0]), static_cast<uint32_t>(file.offsets[0][1])});
    Session session(Mp4Builder::Build(movie));
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(TracksOf(session.Deliver()), (std::vector<uint32_t>{0, 1, 0, 1}));
}

TEST(Delivery, EndsAndRewinds) {
    Session session(Mp4Builder::Build({.tracks = {VideoTrack(3), AudioTrack(2)}}));
    ASSERT_TRUE(session.Start());
    KivMp4EnableTrack(session.demux, 1, 0);
    const std::vector<Unit> first = session.Deliver();
    ASSERT_EQ(first.size(), 3u);
    EXPECT_EQ(KivMp4GetNextUnit(session.demux, &session.unit), 1);
    EXPECT_EQ(KivMp4EnableTrack(session.demux, 2, 1), -1);
    KivMp4EnableTrack(session.demux, 1, 1);
    EXPECT_EQ(session.Deliver(1).at(0).track, 1u);
    KivMp4EnableTrack(session.demux, 1, 0);
    EXPECT_EQ(KivMp4Rewind(session.demux), 0);
    EXPECT_EQ(session.Deliver(1).at(0).bytes, first[0].bytes);  // parameter sets come again
    EXPECT_EQ(session.Deliver(1).at(0).bytes, first[1].bytes);
    KivMp4EnableTrack(session.demux, 1, 1);
    EXPECT_EQ(session.Deliver(1).at(0).pts, 1920);  // the disabled track was not rewound
    EXPECT_EQ(KivMp4EnableTrack(session.demux, 0, 0), 0);
    EXPECT_EQ(session.Deliver().size(), 0u);
    EXPECT_EQ(KivMp4EnableTrack(session.demux, -1, 1), 0);  // stands for track 0
    EXPECT_EQ(session.Deliver().size(), 1u);
}

TEST(Delivery, WritesStartCodes) {
    const Bytes n5 = Nal(5), n10 = Nal(10), n20 = Nal(20, 3), big = Nal(70000), empty;
    struct Case { const char* name; int lengthSize; Bytes sample; Bytes expected; };  // empty: the unit fails
    const Case cases[] = {
        {"4-byte lengths",            4, Prefixed(4, {n10, n20}),                      Started({n10, n20})},
        {"3-byte lengths",            3, Prefixed(3, {n10, n20}),                      Started({n10, n20})},
        {"2-byte lengths",            2, Prefixed(2, {n10, n20}),                      Started({n10, n20})},
        {"1-byte lengths",            1, Prefixed(1, {n10, n20}),                      Started({n10, n20})},
        {"over 64 KiB",               3, Prefixed(3, {n5, big, n5}),                   Started({n5, big, n5})},
        {"empty unit in front",       4, Prefixed(4, {empty, n5}),                     Started({empty, n5})},
        {"many empty units",          1, Bytes(3000),                                  Started(std::vector<Bytes>(2999))},
        {"empty unit at the end",     4, Prefixed(4, {n5, empty}),                     Started({n5})},
        {"an empty unit alone",       4, Prefixed(4, {empty}),                         {}},
        {"three stray bytes",         4, Put().Raw(Prefixed(4, {n5})).Zero(3),         Started({n5})},
        {"one stray byte",            1, Put().Raw(Prefixed(1, {n5})).U8(9),           Started({n5})},
        {"one byte too long",         4, Put().U32(11).Raw(n10),                       {}},
        {"second unit too long",      2, Put().Raw(Prefixed(2, {n5})).U16(9).Zero(8),  {}},
        {"length of all ones",        4, Put().U32(0xFFFFFFFF).Raw(n10),               {}},
        {"length with the top bit",   4, Put().U32(0x80000000).Raw(n10),               {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Track track = VideoTrack(3);
        track.entry = VideoEntry("avc1", Box("avcC", AvcC(c.lengthSize, {SpsNal({})}, {})));
        track.samples = {Prefixed(c.lengthSize, {n5}), c.sample, Prefixed(c.lengthSize, {n5})};
        Session session(Mp4Builder::Build({.tracks = {track}}));
        ASSERT_TRUE(session.Start());
        ASSERT_EQ(session.Deliver(1).size(), 1u);
        const std::vector<Unit> second = session.Deliver(1);
        ASSERT_EQ(second.size(), c.expected.empty() ? 0u : 1u);
        if (second.empty())
            EXPECT_EQ(KivMp4GetNextUnit(session.demux, &session.unit), -1);  // the cursor stays
        else
            EXPECT_EQ(second[0].bytes, c.expected);
    }
}

TEST(Delivery, PutsTheConfigurationInFrontOfSampleZero) {
    const Bytes sps = Hex("67 64 00 0B AC D9 42 C4 E8 40"), pps = Hex("68 EE 3C 80"), nal = Nal(20), sample = Prefixed(4, {nal});
    const Bytes visual = Hex("000001B0 03 000001B5 09"), layer = Hex("00000120 00 C4 88");
    const Bytes start3 = {0, 0, 1}, none;
    const auto avc = [](const Bytes& record) { return VideoEntry("avc1", Box("avcC", record)); };
    const auto mp4v = [](const Bytes& config) { return VideoEntry("mp4v", Esds(config)); };
    struct Case { const char* name; Bytes entry; Bytes sample, first, second; };  // empty `first`: fails
    const Case cases[] = {
        {"one of each",            avc(AvcC(4, {sps}, {pps})), sample, Join({start3, sps, Started({pps, nal})}), Started({nal})},
        {"two of each",            avc(AvcC(4, {sps, nal}, {pps, sps})), sample, Join({start3, sps, start3, nal, Started({pps, sps, nal})}), Started({nal})},
        {"no sequence set",        avc(AvcC(4, {}, {pps})), sample, Started({pps, nal}), Started({nal})},
        {"record of four bytes",   avc(Hex("01 64 00 0B")), sample, none, none},
        {"sets behind the record", avc(Hex("01 64 00 0B FF E2 0002 6764 FFFF 00")), sample, none, none},
        {"set counts missing",     avc(Hex("01 64 00 0B FF")), sample, none, none},
        {"visual headers dropped", mp4v(Join({visual, layer})), nal, Join({layer, nal}), nal},
        {"no layer header",        mp4v(visual), nal, nal, nal},
        {"layer header too short", mp4v(Hex("00000120")), nal, nal, nal},
        {"AAC as it is",           AudioEntry("mp4a", Esds(Hex("1190"))), nal, nal, nal},
        {"waveform as it is",      AudioEntry("alaw", Esds(Hex("0600 0100 401F0000 401F0000 0100 0800 0000 0000"))), nal, nal, nal},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Track track = VideoTrack(2);
        track.entry = c.entry;
        track.samples = {c.sample, c.sample};
        Session session(Mp4Builder::Build({.tracks = {track}}));
        ASSERT_TRUE(session.Start());
        for (int round = 0; round < 2; round++) {
            const std::vector<Unit> units = session.Deliver();
            ASSERT_EQ(units.size(), c.first.empty() ? 0u : 2u);
            EXPECT_EQ(session.result, c.first.empty() ? -1 : 1);
            if (units.empty())
                continue;
            EXPECT_EQ(units[0].bytes, c.first);
            EXPECT_EQ(units[1].bytes, c.second);
            KivMp4Rewind(session.demux);
        }
    }
}

TEST(Delivery, TellsTimes) {
    struct Row { int64_t dts, pts, duration; };
    struct Case { const char* name; uint32_t timescale; std::vector<Pair> stts, ctts; std::vector<Edit> edits; std::vector<Row> expected; };
    const uint32_t minusOne = 0xFFFFFFFF;
    const Case cases[] = {
        {"90 kHz", 90000, {{3, 3000}, {2, 1500}}, {}, {},
         {{0, 0, 3000}, {3000, 3000, 3000}, {6000, 6000, 3000}, {9000, 9000, 1500}, {10500, 10500, 1500}}},
        {"30 kHz", 30000, {{3, 3000}, {2, 1500}}, {}, {},
         {{0, 0, 9000}, {9000, 9000, 9000}, {18000, 18000, 9000}, {27000, 27000, 4500}, {31500, 31500, 4500}}},
        {"composition", 30, {{5, 1}}, {{1, 2}, {2, minusOne}, {1, 0}}, {},
         {{0, 6000, 3000}, {3000, 0, 3000}, {6000, 3000, 3000}, {9000, 9000, 3000}, {12000, 12000, 3000}}},
        {"above 2^24 rounded", 90000, {{1, 16777217}, {1, 3}, {3, 1}}, {}, {},  // 16777220 is exact, 16777221 rounds to even
         {{0, 0, 16777216}, {16777216, 16777216, 3}, {16777220, 16777220, 1}, {16777220, 16777220, 1}, {16777222, 16777222, 1}}},
        {"fraction cut off", 44100, {{5, 1024}}, {}, {},  // 2089.79 ticks a sample
         {{0, 0, 2089}, {2089, 2089, 2089}, {4179, 4179, 2089}, {6269, 6269, 2089}, {8359, 8359, 2089}}},
        {"times run out", 90000, {{2, 10}}, {{1, 5}}, {}, {{0, 5, 10}, {10, 10, 10}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}}},
        {"delay", 30000, {{5, 1000}}, {{5, 1000}}, {{500, -1}, {1000, 0}},
         {{45000, 48000, 3000}, {48000, 51000, 3000}, {51000, 54000, 3000}, {54000, 57000, 3000}, {57000, 60000, 3000}}},
        {"three edits", 90000, {{5, 1}}, {}, {{500, -1}, {9, 0}, {9, 0}}, {{0, 0, 1}, {1, 1, 1}, {2, 2, 1}, {3, 3, 1}, {4, 4, 1}}},
        {"one edit", 90000, {{5, 1}}, {}, {{500, -1}}, {{0, 0, 1}, {1, 1, 1}, {2, 2, 1}, {3, 3, 1}, {4, 4, 1}}},
        {"media time not 0", 90000, {{5, 1}}, {}, {{500, -1}, {9, 1}}, {{0, 0, 1}, {1, 1, 1}, {2, 2, 1}, {3, 3, 1}, {4, 4, 1}}},
    };
    for (const Case& c : cases) {
        for (const uint8_t version : {uint8_t{0}, uint8_t{1}}) {
            SCOPED_TRACE(c.name);
            Track track = VideoTrack(5);
            track.timescale = c.timescale;
            track.times = c.stts;
            track.composition = c.ctts;
            track.edits = c.edits;
            track.headerVersion = track.editVersion = version;
            Session session(Mp4Builder::Build({.tracks = {track}}));
            ASSERT_TRUE(session.Start());
            for (size_t i = 0; i < 10; i++) {  // twice, so that the lookups go back too
                const Unit unit = session.Deliver(1).at(0);
                EXPECT_EQ(unit.dts, c.expected[i % 5].dts) << i;
                EXPECT_EQ(unit.pts, c.expected[i % 5].pts) << i;
                EXPECT_EQ(unit.duration, c.expected[i % 5].duration) << i;
                if (i == 4)
                    KivMp4Rewind(session.demux);
            }
        }
    }
}

TEST(Delivery, MarksSyncSamplesAndKind) {
    struct Case { const char* name; std::vector<uint32_t> stss; bool present; std::vector<uint32_t> expected; };
    const Case cases[] = {
        {"listed", {1, 3}, true, {1, 0, 1}}, {"no table", {}, false, {1, 1, 1}}, {"empty table", {}, true, {1, 1, 1}},
        {"first not listed", {2}, true, {1, 1, 0}},  // sample 0 answers for everything in front of the first entry
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Movie movie{.tracks = {VideoTrack(3), AudioTrack(3)}};
        movie.tracks[0].sync = c.stss;
        movie.tracks[0].hasSync = c.present;
        Session session(Mp4Builder::Build(movie));
        ASSERT_TRUE(session.Start());
        std::vector<uint32_t> flags;
        for (const Unit& unit : session.Deliver()) {
            EXPECT_EQ(unit.isVideo, unit.track == 0);
            if (unit.isVideo)
                flags.push_back(unit.isSync);
            else
                EXPECT_EQ(unit.isSync, 1u);
        }
        EXPECT_EQ(flags, c.expected);
    }
}

TEST(Delivery, StopsAtATrackWithoutFormat) {
    Movie movie{.tracks = {VideoTrack(2), AudioTrack(2)}};
    movie.tracks[1].entry = AudioEntry("samr", Box("damr", Bytes(9)));
    Session session(Mp4Builder::Build(movie));
    session.logLevel = 1;
    ASSERT_TRUE(session.Start());
    CodecInfo info = {};
    EXPECT_EQ(KivMp4GetTrackInfo(session.demux, 1, &info), -1);
    EXPECT_EQ(KivMp4EnableTrack(session.demux, 1, 1), 0);
    LogCapture log;
    EXPECT_EQ(session.Deliver().size(), 1u);
    EXPECT_EQ(session.Deliver().size(), 0u);
    EXPECT_EQ(log.Text(), std::string("E/ GetNextUnit [1121]:  Error from GetNext for track 1 \n") +
                              "E/ GetNextUnit [1121]:  Error from GetNext for track 1 \n");
    KivMp4EnableTrack(session.demux, 1, 0);
    EXPECT_EQ(session.Deliver().size(), 1u);
}

TEST(Delivery, SelectsTheFormatWhenATrackTurnsOn) {
    Track track = AudioTrack();
    track.entry = AudioEntry("mp4a", Esds(Hex("1230")));  // its six channels are reported whenever it is described
    Session session(Mp4Builder::Build({.tracks = {track}}));
    session.logLevel = 1;
    ASSERT_EQ(session.Open(), 0);
    LogCapture log;
    struct Case { uint8_t enable; int reports; };
    for (const Case& c : {Case{0, 0}, Case{1, 2}, Case{1, 2}, Case{0, 2}, Case{1, 3}}) {
        EXPECT_EQ(KivMp4EnableTrack(session.demux, 0, c.enable), 0);
        EXPECT_EQ(log.Count(" Channels count (6) exceeds 2 \n"), c.reports);
    }
}

TEST(Delivery, GrowsThePayloadBlockWithSlack) {
    Track track = AudioTrack(0);
    for (size_t size : {100, 2148, 2149, 60})
        track.samples.push_back(Nal(size));
    Session session(Mp4Builder::Build({.tracks = {track}}));
    ASSERT_TRUE(session.Start());
    std::memset(&session.unit, 0xEE, sizeof session.unit);
    KivMp4InitUnit(session.demux, &session.unit);
    Bytes copy(2149);
    for (int32_t capacity : {2212, 2212, 4261, 4261}) {
        const Unit unit = session.Deliver(1).at(0);
        EXPECT_EQ(session.unit.capacity, capacity);
        EXPECT_EQ(KivMp4GetNextUnitData(session.demux, copy.data()), 0);
        EXPECT_EQ(Bytes(copy.begin(), copy.begin() + session.unit.size), unit.bytes);
    }
    for (uint8_t byte : session.unit.padding)
        EXPECT_EQ(byte, 0xEE);  // not the module's
    KivMp4InitUnit(session.demux, &session.unit);
    EXPECT_EQ(KivMp4GetNextUnitData(session.demux, copy.data()), 0);  // nothing to copy any more
}

}  // namespace
}  // namespace kivmp4::test
