// Delivery: order across tracks, payload formats, times and flags; and where navigation leaves the tracks.
#include "support/Session.h"

#include <tuple>

namespace kivmp4::test {
namespace {

TEST(Delivery, TakesTheLowerTrackOfTwoAtOnePlace) {
    Movie movie{.tracks = {AudioTrack(2), AudioTrack(2)}, .order = {1, 1, 0, 0}, .moovLast = true};
    const std::vector<Numbers> expected = {{1, 1, 0, 0}, {0, 1, 0, 1}};
    for (const Numbers& order : expected) {
        Session session(movie);
        ASSERT_TRUE(session.Start());
        for (const uint32_t track : order)
            EXPECT_EQ(session.Deliver(1).at(0).track, track);
        for (Track& track : movie.tracks)
            track.replace["stco"] = Words("stco", {2, 32, 42});  // in the data, which begins after "ftyp"
    }
}

TEST(Delivery, EndsAndRewinds) {
    Session session({.tracks = {VideoTrack(3), AudioTrack(2)}});
    std::memset(session.unit.padding, 0xEE, sizeof session.unit.padding);
    ASSERT_TRUE(session.Start());
    session.Enable(1, false);
    const std::vector<Unit> first = session.Deliver();
    ASSERT_EQ(first.size(), 3u);
    EXPECT_EQ(KivMp4GetNextUnit(session.demux, &session.unit), 1);
    EXPECT_EQ(KivMp4EnableTrack(session.demux, 2, 1), -1);
    session.Enable(1, true);
    EXPECT_EQ(session.Deliver(1).at(0).track, 1u);
    session.Enable(1, false);
    EXPECT_EQ(KivMp4Rewind(session.demux), 0);
    EXPECT_EQ(session.Deliver(1).at(0).bytes, first[0].bytes);
    Bytes copy(first[0].bytes.size());
    EXPECT_EQ(KivMp4GetNextUnitData(session.demux, copy.data()), 0);
    EXPECT_EQ(copy, first[0].bytes);
    session.Enable(1, true);
    EXPECT_EQ(session.Deliver(2).at(1).pts, 1920);  // the disabled track was not rewound
    EXPECT_EQ(KivMp4EnableTrack(session.demux, 0, 0), 0);
    EXPECT_EQ(session.Deliver().size(), 0u);
    EXPECT_EQ(KivMp4EnableTrack(session.demux, -1, 1), 0);  // stands for track 0
    EXPECT_EQ(session.Deliver().size(), 1u);
    for (uint8_t byte : session.unit.padding)
        EXPECT_EQ(byte, 0xEE);  // not the module's
}

TEST(Delivery, FormatsUnits) {
    const Bytes sps = Hex("67 64 00 0B AC D9 42 C4 E8 40"), pps = Hex("68 EE 3C 80"), n5 = Nal(5), none;
    const Bytes visual = Hex("000001B0 03 000001B5 09 00000100"), layer = Hex("00000120 00 C4 88");
    const Bytes start = Hex("000001"), plain = Prefixed(4, {n5});
    const Bytes set = Join({start, sps, Started({pps})});
    const auto record = [](const Bytes& avcC) { return VideoEntry("avc1", Box("avcC", avcC)); };
    const auto avc = [&](int lengthSize) { return record(AvcC(lengthSize, {sps}, {pps})); };
    const auto mp4v = [](const Bytes& config) { return VideoEntry("mp4v", Esds(config)); };
    const std::tuple<const char*, Bytes, Bytes, Bytes, Bytes> cases[] = {
        {"4-byte lengths", avc(4), Prefixed(4, {n5, pps}), set, Started({n5, pps})},
        {"2-byte lengths", avc(2), Prefixed(2, {n5, pps}), set, Started({n5, pps})},
        {"1-byte lengths", avc(1), Prefixed(1, {n5, pps}), set, Started({n5, pps})},
        {"empty unit in front", avc(4), Prefixed(4, {none, n5}), set, Started({none, n5})},
        {"empty unit at the end", avc(4), Prefixed(4, {n5, none}), set, Started({n5})},
        {"three stray bytes", avc(4), Join({plain, Bytes(3)}), set, Started({n5})},
        {"one byte too long", avc(4), Put().U32(6).Raw(n5), none, none},
        {"second unit too long", avc(2), Put().Raw(Prefixed(2, {n5})).U16(9).Zero(8), none, none},
        {"length of all ones", avc(4), Put().U32(0xFFFFFFFF).Raw(n5), none, none},
        {"two sets of each", record(AvcC(4, {sps, n5}, {pps, n5})), plain,
         Join({start, sps, start, n5, Started({pps, n5})}), Started({n5})},
        {"no sequence set", record(AvcC(4, {}, {pps})), plain, Started({pps}), Started({n5})},
        {"visual headers dropped", mp4v(Join({visual, layer})), n5, layer, n5},
        {"layer header too short", mp4v(Hex("00000120")), n5, none, n5},
        {"AAC as it is", AudioEntry("mp4a", Esds(Hex("1190"))), n5, none, n5},
    };
    for (const auto& [name, entry, sample, prefix, unit] : cases) {  // without a unit delivery fails
        SCOPED_TRACE(name);
        Track track{.entry = entry, .samples = {sample, sample}};
        Session session({.tracks = {track}});
        ASSERT_TRUE(session.Start());
        for (int round = 0; round < 2; round++) {
            const std::vector<Unit> units = session.Deliver();
            EXPECT_EQ(session.result, unit.empty() ? -1 : 1);  // and again: the cursor stays
            ASSERT_EQ(units.size(), unit.empty() ? 0u : 2u);
            if (!units.empty()) {
                EXPECT_EQ(units[0].bytes, Join({prefix, unit}));
                EXPECT_EQ(units[1].bytes, unit);
                KivMp4Rewind(session.demux);
            }
        }
    }
}

TEST(Delivery, GrowsThePayloadWithMarginAndKeepsWhatIsWritten) {
    const std::vector<Bytes> many(16000, Nal(1));  // after one-byte lengths: 2 bytes become 5
    Movie movie{.tracks = {VideoTrack(), AudioTrack()}, .order = {0, 1, 0, 0}};
    movie.tracks[0].entry = VideoEntry("avc1", Box("avcC", AvcC(1, {}, {})));
    movie.tracks[0].samples = {Prefixed(1, many), Prefixed(1, {Nal(9)}), Prefixed(1, many)};
    movie.tracks[1].samples = {Nal(60000), Nal(100), Nal(2148), Nal(2149), Nal(100)};
    Session session(movie);
    ASSERT_TRUE(session.Start());
    AccessUnit units[3] = {};
    for (const size_t i :
         {0, 1, 2, 1})  // the first grows where it stands, the last has to move away from the block after it
        ASSERT_EQ(KivMp4GetNextUnit(session.demux, &units[i]), 0);
    for (const AccessUnit& unit : {units[0], units[1]})
        EXPECT_TRUE(Bytes(unit.payload, unit.payload + unit.size) == Started(many));
    for (const int32_t capacity : {2212, 2212, 4261}) {  // 64 bytes have to fit after a unit; 2112 more when it grows
        session.Deliver(1);
        EXPECT_EQ(session.unit.capacity, capacity);
    }
    // A record that was never prepared: an object of the module, which must not be written to.
    session.unit.payload = reinterpret_cast<uint8_t*>(session.demux);
    session.unit.capacity = 10000;
    EXPECT_EQ(session.Deliver(1).at(0).bytes, Nal(100));
}

TEST(Delivery, TellsTimes) {
    const uint32_t minus = 0xFFFFFFFF;
    const auto edits = [](const Numbers& words, uint8_t version = 0) {
        return Box("edts", Words("elst", words, version));
    };
    const Bytes delay = edits({2, 500, minus, 0, 1000, 0, 0}), three = edits({3, 500, minus, 0, 9, 0, 0, 9, 0, 0});
    const auto narrow = [&](uint32_t start) { return edits({2, 500, minus, 0, 9, start, 0}); };
    const auto wide = [&](uint32_t high, uint32_t low) {
        return edits({2, 0, 500, minus, minus, 0, 0, 9, high, low, 0}, 1);
    };
    constexpr uint32_t kFirstByte = 1 << 24;
    using Rows = std::vector<std::vector<int64_t>>;  // decode time, presentation time, duration
    const Rows reordered = {{0, 6000, 3000}, {3000, 0, 3000}, {6000, 3000, 3000}},
               plain = {{0, 0, 1}, {1, 1, 1}, {2, 2, 1}};
    const Rows late = {{45000, 45090, 90}, {45090, 45180, 90}, {45180, 45270, 90}},
               ended = {{0, 5, 10}, {0, 0, 0}, {0, 0, 0}};
    const Rows half = {{45000, 45000, 1}, {45001, 45001, 1}, {45002, 45002, 1}};
    const std::tuple<const char*, uint32_t, Numbers, Numbers, Bytes, Rows> cases[] = {
        {"composition", 30, {1, 3, 1}, {2, 1, 2, 2, minus}, {}, reordered},
        {"times run out", 90000, {1, 1, 10}, {1, 1, 5}, {}, ended},
        {"delay", 1000, {1, 3, 1}, {1, 3, 1}, delay, late},
        {"delay in 64 bits", 90000, {1, 3, 1}, {0}, wide(0, 0), half},
        {"three edits", 90000, {1, 3, 1}, {0}, three, plain},
        {"media time 1", 90000, {1, 3, 1}, {0}, narrow(1), plain},
        {"media time of 25 bits", 90000, {1, 3, 1}, {0}, narrow(kFirstByte), plain},
        {"media time 1 in 64 bits", 90000, {1, 3, 1}, {0}, wide(0, 1), plain},
        {"media time of 57 bits", 90000, {1, 3, 1}, {0}, wide(kFirstByte, 0), plain},
    };
    for (const auto& [name, timescale, stts, ctts, edts, expected] : cases) {
        SCOPED_TRACE(name);
        Track track = VideoTrack(3);
        track.timescale = timescale;
        track.replace = {{"stts", Words("stts", stts)}, {"ctts", Words("ctts", ctts, 1)}, {"edts", edts}};
        Session session({.tracks = {track}});
        ASSERT_TRUE(session.Start());
        for (size_t i = 0; i < 6; i++) {  // twice, so that the look-ups go back too
            const Unit unit = session.Deliver(1).at(0);
            EXPECT_EQ((std::vector{unit.dts, unit.pts, unit.duration}), expected[i % 3]) << i;
            if (i == 2)
                KivMp4Rewind(session.demux);
        }
    }
}

// Half of the samples lie past 4 GiB.
TEST(Delivery, ReachesPast4GiB) {
    constexpr int64_t kHole = int64_t{5} << 30;
    Track track = VideoTrack(20);
    size_t dataSize = 0;
    for (const Bytes& sample : track.samples)
        dataSize += sample.size();
    track.replace = {{"stss", Words("stss", {2, 1, 11})}, {"co64", {}}};
    Bytes content;
    Session session({.tracks = {track}});
    for (int pass = 0; pass < 2; pass++) {  // the first tells where the data begin
        Put offsets;
        offsets.U32(20);
        uint64_t offset = content.size() - (content.empty() ? 0 : dataSize);
        for (size_t i = 0; i < 20; offset += track.samples[i++].size()) {
            session.file.holeAt = i <= 10 ? static_cast<int64_t>(offset) : session.file.holeAt;
            offsets.U64(offset + (i < 10 ? 0 : kHole));
        }
        track.replace["stco"] = FullBox("co64", offsets);
        content = Mp4Builder::Build({.tracks = {track}});
    }
    session.file.bytes = content;
    session.file.holeSize = kHole;
    ASSERT_TRUE(session.Start());
    const std::vector<Unit> units = session.Deliver();
    ASSERT_EQ(units.size(), 20u);
    for (size_t i = 1; i < 20; i++)
        EXPECT_EQ(units[i].bytes, Started({Bytes(track.samples[i].begin() + 4, track.samples[i].end())})) << i;
    for (const bool raw : {false, true}) {  // there and back, read ahead and past the buffer
        if (raw)
            KivMp4FlushFileReader(session.demux);
        KivMp4Rewind(session.demux);
        EXPECT_EQ(KivMp4JumpPTS(session.demux, 30000), 0);
        EXPECT_EQ(session.Deliver(1).at(0).bytes, units[10].bytes);
        EXPECT_EQ(KivMp4JumpPTS(session.demux, 3000), 0);
        EXPECT_EQ(session.Deliver(2).at(1).bytes, units[1].bytes);
    }
}

// The samples' box is larger than 4 GiB, and the index follows it.
TEST(Delivery, FindsTheIndexPast4GiB) {
    constexpr uint64_t kHole = uint64_t{5} << 30;
    Session session({.tracks = {VideoTrack(3)}, .moovLast = true, .mdatBox = Box64});
    Bytes& bytes = session.file.bytes;
    const auto find = [&](std::string_view type) {
        return std::search(bytes.begin(), bytes.end(), type.begin(), type.end()) - bytes.begin() - 4;
    };
    session.file.holeAt = find("moov");
    const Bytes size = Put().U64(static_cast<uint64_t>(find("moov") - find("mdat")) + kHole);
    std::copy(size.begin(), size.end(), bytes.begin() + find("mdat") + 8);
    session.file.holeSize = kHole;
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(session.Deliver().size(), 3u);
}

// Its size with the margin is more than a record can tell.
TEST(Delivery, RefusesAUnitOf2GiB) {
    Track sound = AudioTrack(2);
    sound.replace["stsz"] = FullBox("stsz", Put().U32(0).U32(2).U32(10).U32(0x7FFFFFFF));
    Session session({.tracks = {sound}});
    session.file.holeAt = static_cast<int64_t>(session.file.bytes.size());
    session.file.holeSize = int64_t{3} << 30;
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(session.Deliver().size(), 1u);
    EXPECT_EQ(session.result, -1);
}

// 90 pictures of 3000 ticks with key frames 0, 30 and 60 beside 200 audio samples of 1920 ticks.
Movie LongMovie(const Bytes& stss) {
    Movie movie{.tracks = {VideoTrack(90), AudioTrack(200)}};
    movie.tracks[0].replace["stss"] = stss;
    movie.tracks[1].samplesPerChunk = 3;
    return movie;
}

// Number of the first unit of a track among `units`, at `ticks` each; -1 if there is none.
int64_t FirstOf(const std::vector<Unit>& units, uint32_t track, int64_t ticks) {
    const auto found = std::find_if(units.begin(), units.end(), [&](const Unit& unit) { return unit.track == track; });
    return found == units.end() ? -1 : found->dts / ticks;
}

TEST(Navigation, MovesAllTracks) {
    enum { kNext, kBack, kJump };
    const Bytes keys = Words("stss", {3, 1, 31, 61}), unordered = Words("stss", {3, 61, 1, 31});
    const Bytes beyond = Words("stss", {2, 1, 96}), all;
    const std::string noNext = "W/ GetNextSyncUnit [993]:  Unable to get next Sync Sample \n";
    const std::string noBack = "W/ GetPrevSyncUnit [943]:  Unable to get previous Sync Sample  \n";
    const std::string nextless = "E/ GetNextSyncUnit [984]:  Couldn't get Video track \n";
    const std::string backless = "E/ GetPrevSyncUnit [934]:  Video Track not found \n";
    const std::string reset = "D/ JumpPTS [864]:  Reset Demux to start of Video \n", key = "Is this an I-Frame:   Y\n";
    const std::string nowhere =
        "E/ GetJumpSampleIndex [796]:  Jump index cannot be obtained  \n"
        "E/ JumpPTS [843]: FileMovie::JumpPTS:   GetJumpSampleIndex returned 0 \n";
    const std::string audioLeads =
        "E/ JumpPTS [815]: FileMovie::JumpPTS:  Video track is disables or no video track. "
        "Using the sample index of first enabled track\n";
    struct Case {
        const char* name;
        Bytes stss;
        int off;      // track that is disabled during the move; -1 none
        size_t from;  // where the video stands
        int move;
        int64_t time;
        int32_t result;
        int64_t video, audio;  // where they stand afterwards; -1 at the end
        std::string line;
    };
    const Case cases[] = {
        {"next from the start", keys, -1, 0, kNext, 0, 0, 30, 46,
         "D/ GetNextSyncUnit [1005]:  audioTS[88320]  Video[90000] \n"},
        {"next from the last", keys, -1, 60, kNext, 0, 1, 60, 0, noNext},
        {"next from the end", keys, -1, 90, kNext, 0, 1, -1, 0, noNext},
        {"back from after the last", keys, -1, 61, kBack, 0, 0, 0, 0, ""},
        {"back from the second", keys, -1, 30, kBack, 0, 0, 0, 0, ""},
        {"next without a table", all, -1, 10, kNext, 0, 1, 10, 0, noNext},
        {"back without a table", all, -1, 10, kBack, 0, 1, 10, 0, noBack},
        {"next, table not in order", unordered, -1, 0, kNext, 0, 0, 30, 46, ""},
        {"next without video", keys, 0, 5, kNext, 0, -1, 5, 0, nextless},
        {"back without video", keys, 0, 5, kBack, 0, -1, 5, 0, backless},
        {"to the start", keys, -1, 50, kJump, 0, 0, 0, 0, reset},
        {"a tie goes to the later", keys, -1, 50, kJump, 45000, 0, 30, 46, "D/ JumpPTS [898]: JumpPTS():  " + key},
        {"tie between the others", keys, -1, 1, kJump, 135000, 0, 60, 93,
         "D/ JumpPTS [888]: AUDIO/Text: OldIndex[0]\tNewIndex[93] TS[178560] offset["},
        {"after the last key frame", keys, -1, 1, kJump, 210000, 0, 70, 109,
         "D/ JumpPTS [874]:  Is this an I-Frame:   N\n"},
        {"the last sample", keys, -1, 50, kJump, 267000, -2, 50, 0, nowhere},
        {"before the start", keys, -1, 50, kJump, -1, -2, 50, 0, nowhere},
        {"to one past the end", beyond, -1, 50, kJump, 255000, 0, -1, 0,
         "D/ JumpPTS [872]: VIDEO: TrackTS[0] offset[0] Index[95] \n"},
        {"next is past the end", beyond, -1, 50, kNext, 0, -1, -1, 0,
         "E/ GetNextSyncUnit [1023]:  Error from GetNext for track 0 \n"},
        {"jump without a table", all, -1, 10, kJump, 90000, -2, 10, 0, "E/ GetJumpSampleIndex [763]:  Cannot start \n"},
        {"with the video at its end", keys, -1, 90, kJump, 0, -2, -1, 0,
         "E/ JumpPTS [825]: Video Track has reached EOS\n"},
        {"led by audio", keys, 0, 5, kJump, 90000, 0, 29, 46, audioLeads},  // 88320 is in picture 29
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        Session session(LongMovie(c.stss));
        session.logLevel = 4;
        ASSERT_TRUE(session.Start());
        session.Enable(1, false);
        ASSERT_EQ(session.Deliver(c.from).size(), c.from);
        session.Enable(0, c.off != 0);
        session.Enable(1, c.off != 1);
        const int32_t result = c.move == kJump ? KivMp4JumpPTS(session.demux, c.time)
                                               : (c.move == kNext ? KivMp4GetNextSyncUnit : KivMp4GetPrevSyncUnit)(
                                                     session.demux, &session.unit);
        EXPECT_EQ(result, c.result);
        if (c.move != kJump && result == 0) {
            EXPECT_EQ(session.unit.dts, 3000 * c.video);
            EXPECT_TRUE(session.unit.isSync == 1 && session.unit.isVideo == 1);
        }
        EXPECT_TRUE(log.Has(c.line)) << log.Text();
        EXPECT_FALSE(c.stss == keys && log.Has("Not a Sync sample")) << log.Text();
        session.Enable(0, true);
        session.Enable(1, true);
        const std::vector<Unit> rest = session.Deliver();
        for (const Unit& unit : rest) {
            const int64_t place = unit.dts / 3000;
            const bool isKey = !unit.isVideo || c.stss.empty() || place == 0 || (c.stss == keys && place % 30 == 0);
            EXPECT_TRUE(c.stss == unordered || unit.isSync == isKey) << unit.dts;
        }
        EXPECT_EQ(FirstOf(rest, 0, 3000), c.video);
        EXPECT_EQ(FirstOf(rest, 1, 1920), c.audio);
    }
}

TEST(Navigation, LeadsByTheLastVideoTrackAndCountsDelays) {
    Movie movie = LongMovie({});
    movie.tracks.push_back(movie.tracks[0]);
    movie.tracks[0].replace["stts"] = Words("stts", {2, 20, 3000, 70, 1500});
    movie.tracks[1].replace["edts"] = Box("edts", Words("elst", {2, 500, 0xFFFFFFFF, 0, 9, 0, 0}));
    movie.tracks[2].replace["stss"] = Words("stss", {2, 1, 31});
    Session session(movie);
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(KivMp4GetNextSyncUnit(session.demux, &session.unit), 0);
    EXPECT_EQ(session.unit.trackIndex, 2u);
    const std::vector<Unit> rest = session.Deliver();
    EXPECT_EQ(FirstOf(rest, 0, 1), 90000);
    EXPECT_EQ(FirstOf(rest, 1, 1), 45000 + 23 * 1920);  // the last one up to 90000
    EXPECT_EQ(FirstOf(rest, 2, 1), 90000);
}

// Presentation times decide, with the sign of their offsets.
TEST(Navigation, SeeksByPresentationTimes) {
    const uint32_t back = 0u - 1500;
    Numbers all(90);
    std::iota(all.begin(), all.end(), 1u);
    Movie movie = LongMovie(FullBox("stss", Put().U32(90).Each(all, 4)));
    movie.tracks[0].replace["ctts"] = Words("ctts", {2, 45, back, 45, 4500}, 1);
    Session session(movie);
    ASSERT_TRUE(session.Start());
    session.Enable(1, false);
    // Up to picture 44 times are 3000 n - 1500, from 45 on 3000 n + 4500.
    const std::pair<int64_t, int64_t> cases[] = {{58499, 19},  {58500, 20}, {61499, 20}, {139499, 44},
                                                 {139500, 45}, {2999, 0},   {3000, 1},   {265499, 86}};
    for (const auto& [time, video] : cases) {
        SCOPED_TRACE(time);
        EXPECT_EQ(KivMp4JumpPTS(session.demux, time), 0);
        EXPECT_EQ(FirstOf(session.Deliver(1), 0, 3000), video);
    }
}

}  // namespace
}  // namespace kivmp4::test
