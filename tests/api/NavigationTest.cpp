// Moving by key frames and by time: where every track stands afterwards.
#include "support/Session.h"

namespace kivmp4::test {
namespace {

// 90 pictures of 3000 ticks with key frames 0, 30 and 60 beside 200 audio samples of 1920 ticks, in tables of several
// entries.
Movie LongMovie() {
    Movie movie{.tracks = {VideoTrack(90), AudioTrack(200)}};
    movie.tracks[0].sync = {1, 31, 61};
    movie.tracks[0].times = {{20, 3000}, {40, 3000}, {30, 3000}};
    movie.tracks[1].times = {{30, 1024}, {60, 1024}, {110, 1024}};
    movie.tracks[1].samplesPerChunk = 3;
    return movie;
}

// Opens `movie` with the video cursor at `video`, delivered alone.
void StartAt(Session& session, size_t video) {
    ASSERT_TRUE(session.Start());
    KivMp4EnableTrack(session.demux, 1, 0);
    ASSERT_EQ(session.Deliver(video).size(), video);
    KivMp4EnableTrack(session.demux, 1, 1);
}

// Where the cursors stand, by the decode times of the next units; -1 at the end.
struct Position {
    int64_t video = -1, audio = -1;
    bool operator==(const Position&) const = default;
};
std::ostream& operator<<(std::ostream& out, const Position& p) {
    return out << p.video << "/" << p.audio;
}
Position Stand(Session& session) {
    Position p;
    for (const Unit& unit : session.Deliver()) {
        int64_t& time = unit.isVideo ? p.video : p.audio;
        time = time < 0 ? unit.dts / (unit.isVideo ? 3000 : 1920) : time;
    }
    return p;
}

TEST(SyncNavigation, StepsByKeyFrames) {
    const std::vector<uint32_t> usual = {1, 31, 61};
    struct Case { const char* name; std::vector<uint32_t> stss; size_t from; bool next; int32_t result; Position expected; };
    const Case cases[] = {
        {"next from the start",        usual,       0,  true,  0, {30, 46}},
        {"next from a key frame",      usual,       30, true,  0, {60, 93}},
        {"next from between",          usual,       45, true,  0, {60, 93}},
        {"next from the last",         usual,       60, true,  1, {60, 0}},
        {"next from behind",           usual,       75, true,  1, {75, 0}},
        {"next from the end",          usual,       90, true,  1, {-1, 0}},
        {"back from behind the last",  usual,       61, false, 0, {0, 0}},
        {"back from the last",         usual,       60, false, 0, {30, 46}},
        {"back from between",          usual,       45, false, 0, {30, 46}},
        {"back from the second",       usual,       30, false, 0, {0, 0}},
        {"back from the first",        usual,       0,  false, 0, {0, 0}},
        {"next with one key frame",    {1},         0,  true,  1, {0, 0}},
        {"back with one key frame",    {1},         45, false, 0, {0, 0}},
        {"next without a table",       {},          10, true,  1, {10, 0}},
        {"back without a table",       {},          10, false, 1, {10, 0}},
        {"next in a disordered table", {61, 1, 31}, 0,  true,  0, {30, 46}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Movie movie = LongMovie();
        movie.tracks[0].sync = c.stss;
        Session session(Mp4Builder::Build(movie));
        StartAt(session, c.from);
        const auto step = c.next ? KivMp4GetNextSyncUnit : KivMp4GetPrevSyncUnit;
        ASSERT_EQ(step(session.demux, &session.unit), c.result);
        if (c.result == 0) {
            EXPECT_EQ(session.unit.dts, 3000 * c.expected.video);
            EXPECT_EQ(session.unit.isSync, 1u);
            EXPECT_EQ(session.unit.isVideo, 1u);
        }
        EXPECT_EQ(Stand(session), c.expected);
    }
}

TEST(SyncNavigation, WalksThereAndBack) {
    Session session(Mp4Builder::Build(LongMovie()));
    session.logLevel = 2;
    ASSERT_TRUE(session.Start());
    const Bytes first = session.Deliver(1).at(0).bytes;
    KivMp4Rewind(session.demux);
    LogCapture log;
    for (int64_t expected : {30, 60}) {
        EXPECT_EQ(KivMp4GetNextSyncUnit(session.demux, &session.unit), 0);
        EXPECT_EQ(session.unit.dts, 3000 * expected);
    }
    EXPECT_EQ(log.Text(), "");
    EXPECT_EQ(KivMp4GetNextSyncUnit(session.demux, &session.unit), 1);
    EXPECT_EQ(log.Text(), "W/ GetNextSyncUnit [993]:  Unable to get next Sync Sample \n");
    for (int64_t expected : {30, 0, 0}) {
        EXPECT_EQ(KivMp4GetPrevSyncUnit(session.demux, &session.unit), 0);
        EXPECT_EQ(session.unit.dts, 3000 * expected);
    }
    EXPECT_EQ(session.Copy().bytes, first);  // with the parameter sets again
    EXPECT_EQ(KivMp4GetNextSyncUnit(session.demux, &session.unit), 0);
    EXPECT_EQ(Stand(session), (Position{30, 46}));
}

TEST(SyncNavigation, NeedsAnEnabledVideoTrackAndMovesDisabledOnes) {
    Session session(Mp4Builder::Build(LongMovie()));
    session.logLevel = 1;
    ASSERT_TRUE(session.Start());
    KivMp4EnableTrack(session.demux, 0, 0);
    LogCapture log;
    EXPECT_EQ(KivMp4GetNextSyncUnit(session.demux, &session.unit), -1);
    EXPECT_EQ(KivMp4GetPrevSyncUnit(session.demux, &session.unit), -1);
    EXPECT_EQ(log.Text(), "E/ GetNextSyncUnit [984]:  Couldn't get Video track \nE/ GetPrevSyncUnit [934]:  Video Track not found \n");
    KivMp4EnableTrack(session.demux, 0, 1);
    KivMp4EnableTrack(session.demux, 1, 0);
    EXPECT_EQ(KivMp4GetNextSyncUnit(session.demux, &session.unit), 0);
    KivMp4EnableTrack(session.demux, 1, 1);
    EXPECT_EQ(Stand(session), (Position{30, 46}));
}

TEST(SyncNavigation, LeadsByTheLastVideoTrack) {
    Movie movie{.tracks = {VideoTrack(90), VideoTrack(90)}};
    movie.tracks[0].times = {{20, 3000}, {70, 1500}};
    movie.tracks[0].composition = {{90, 6000}};  // stretches its first entry to 66000, and shuts it below 6000
    movie.tracks[1].sync = {1, 2, 22};
    struct Case { bool next; int64_t leader; int64_t other; };
    const Case cases[] = {{true, 3000, 3000}, {true, 63000, 61500}, {false, 3000, 61500}};
    for (size_t steps = 1; steps <= 3; steps++) {
        SCOPED_TRACE(steps);
        Session fresh(Mp4Builder::Build(movie));
        ASSERT_TRUE(fresh.Start());
        for (size_t i = 0; i < steps; i++)
            EXPECT_EQ((cases[i].next ? KivMp4GetNextSyncUnit : KivMp4GetPrevSyncUnit)(fresh.demux, &fresh.unit), 0);
        EXPECT_EQ(fresh.unit.dts, cases[steps - 1].leader);
        EXPECT_EQ(fresh.unit.trackIndex, 1u);
        KivMp4EnableTrack(fresh.demux, 1, 0);
        EXPECT_EQ(fresh.Deliver(1).at(0).dts, cases[steps - 1].other);
    }
}

TEST(SyncNavigation, CountsTheDelayOfOtherTracks) {
    Movie movie = LongMovie();
    movie.tracks[1].edits = {{500, -1}, {9, 0}};
    Session session(Mp4Builder::Build(movie));
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(KivMp4GetNextSyncUnit(session.demux, &session.unit), 0);
    KivMp4EnableTrack(session.demux, 0, 0);
    EXPECT_EQ(session.Deliver(1).at(0).dts, 45000 + 23 * 1920);  // the last one up to 90000
}

TEST(Seeking, PicksTheNearestKeyFrame) {
    const int64_t least = std::numeric_limits<int64_t>::min(), most = std::numeric_limits<int64_t>::max();
    struct Case { const char* name; size_t from; int64_t time; int32_t result; Position expected; };
    const Case cases[] = {
        {"start",                    50, 0,         0,  {0, 0}},
        {"first sample",             50, 2999,      0,  {0, 0}},
        {"nearer to the first",      50, 44999,     0,  {0, 0}},
        {"tie goes to the later",    50, 45000,     0,  {30, 46}},
        {"nearer to the second",     0,  134999,    0,  {30, 46}},
        {"tie between the others",   0,  135000,    0,  {60, 93}},
        {"the last key frame",       0,  180000,    0,  {60, 93}},
        {"behind the last",          0,  210000,    0,  {70, 109}},
        {"last but one",             80, 266999,    0,  {88, 137}},
        {"the last sample",          50, 267000,    -2, {50, 0}},
        {"far behind",               50, most,      -2, {50, 0}},
        {"before the start",         50, -1,        -2, {50, 0}},
        {"far before",               50, least,     -2, {50, 0}},
        {"with the video exhausted", 90, 0,         -2, {-1, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Session session(Mp4Builder::Build(LongMovie()));
        StartAt(session, c.from);
        EXPECT_EQ(KivMp4JumpPTS(session.demux, c.time), c.result);
        EXPECT_EQ(Stand(session), c.expected);
    }
}

TEST(Seeking, ReportsWhatItDid) {
    struct Case { const char* name; size_t from; int64_t time; const char* line; };
    const Case cases[] = {
        {"forward", 1, 135000, "D/ JumpPTS [847]:  after Jump params:  SampleIdx[60] TS[180000] CurrentTS[3000] \n"
                               "D/ JumpPTS [848]:  CurrentIndex[1]  NewIndex[60]  \n"},
        {"forward", 1, 135000, "D/ JumpPTS [874]:  Is this an I-Frame:   Y\n"},
        {"forward", 1, 135000, "D/ JumpPTS [888]: AUDIO/Text: OldIndex[0]\tNewIndex[93] TS[178560] offset["},
        {"behind the last", 1, 210000, "D/ JumpPTS [874]:  Is this an I-Frame:   N\n"},
        {"backward", 80, 90000, "D/ JumpPTS [898]: JumpPTS():  Is this an I-Frame:   Y\n"},
        {"backward", 80, 90000, "D/ JumpPTS [912]: AUDIO/Text: OldIndex[0]\tNewIndex[46] TS[88320] offset["},
        {"to itself", 60, 180000, "D/ JumpPTS [874]:  Is this an I-Frame:   Y\n"},
        {"start", 80, 0, "D/ JumpPTS [864]:  Reset Demux to start of Video \n"},
        {"end", 80, 267000, "E/ GetJumpSampleIndex [796]:  Jump index cannot be obtained  \n"
                            "E/ JumpPTS [843]: FileMovie::JumpPTS:   GetJumpSampleIndex returned 0 \n"},
        {"exhausted", 90, 0, "E/ JumpPTS [825]: Video Track has reached EOS\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        Session session(Mp4Builder::Build(LongMovie()));
        session.logLevel = 4;
        StartAt(session, c.from);
        KivMp4JumpPTS(session.demux, c.time);
        EXPECT_TRUE(log.Has(c.line)) << log.Text();
    }
}

TEST(Seeking, FollowsPresentationOrderAndDelay) {
    // Presented at 6000, 9000, 3000, 9000, 15000: the first pair of neighbours around a time counts.
    struct Case { const char* name; std::vector<Edit> edits; int64_t time; int32_t result; int64_t dts; };
    const Case cases[] = {
        {"below the second decode time", {}, 2999, 0, 0},     {"a later pair", {}, 4000, 0, 6000},
        {"first pair",                   {}, 6000, 0, 0},     {"last pair", {}, 12000, 0, 9000},
        {"last presented",               {}, 15000, -2, 0},   {"arrays know no delay", {{100, -1}, {9, 0}}, 12000, 0, 18000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Track track = VideoTrack(5);
        track.sync = {1};
        track.composition = {{2, 6000}, {1, 0xFFFFF448}, {1, 0}, {1, 3000}};  // the third one -3000
        track.edits = c.edits;
        Session session(Mp4Builder::Build({.tracks = {track}}));
        ASSERT_TRUE(session.Start());
        EXPECT_EQ(KivMp4JumpPTS(session.demux, c.time), c.result);
        EXPECT_EQ(session.Deliver(1).at(0).dts, c.dts);
    }
}

TEST(Seeking, LeadsByAudioWithoutVideo) {
    Session session(Mp4Builder::Build(LongMovie()));
    session.logLevel = 1;
    ASSERT_TRUE(session.Start());
    KivMp4EnableTrack(session.demux, 0, 0);
    LogCapture log;
    EXPECT_EQ(KivMp4JumpPTS(session.demux, 90000), 0);
    EXPECT_EQ(log.Text(), "E/ JumpPTS [815]: FileMovie::JumpPTS:  Video track is disables or no video track. Using the sample index of first enabled track\n");
    KivMp4EnableTrack(session.demux, 0, 1);
    EXPECT_EQ(Stand(session), (Position{29, 46}));  // 88320 falls into picture 29
}

}  // namespace
}  // namespace kivmp4::test
