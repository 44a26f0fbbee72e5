// Hostile files, misbehaving players and missing memory: every call ends soon with a documented answer, nothing stays.
#include "support/Session.h"

#include <ctime>

namespace kivmp4::test {
namespace {

using Clock = std::chrono::steady_clock;

bool Among(int32_t result, std::initializer_list<int32_t> documented) {
    return std::find(documented.begin(), documented.end(), result) != documented.end();
}

// Every export on a handle in whatever state it is. @return a sum over all delivered bytes
uint32_t Exercise(Session& session) {
    const auto start = Clock::now();
    const int64_t extremes[] = {0, 1, 3000, 6000, 90000, -1, std::numeric_limits<int64_t>::min(), std::numeric_limits<int64_t>::max()};
    uint32_t sum = 0;
    const auto deliver = [&](auto deliverOne, int limit) {
        int32_t result = 0;
        while (limit-- > 0 && (result = deliverOne(session.demux, &session.unit)) == 0) {
            for (int32_t i = 0; i < session.unit.size; i++)
                sum += session.unit.payload[i];
        }
        EXPECT_TRUE(Among(result, {0, 1, -1})) << result;
    };
    EXPECT_TRUE(Among(session.Open(), {0, -1}));
    session.EnableAll();
    for (int round = 0; round < 2; round++) {  // read ahead, then raw
        deliver(KivMp4GetNextUnit, 20);
        KivMp4Rewind(session.demux);
        deliver(KivMp4GetNextSyncUnit, 5);
        deliver(KivMp4GetPrevSyncUnit, 5);
        for (int64_t time : extremes) {
            EXPECT_TRUE(Among(KivMp4JumpPTS(session.demux, time), {0, -1, -2})) << time;
            deliver(KivMp4GetNextUnit, 2);
        }
        KivMp4FlushFileReader(session.demux);
    }
    KivMp4ResumeFileReader(session.demux);
    deliver(KivMp4GetNextUnit, 2);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(20));
    return sum;
}

Movie BaseMovie() {
    Movie movie{.tracks = {VideoTrack(10), AudioTrack(12)}};
    movie.tracks[0].sync = {1, 4, 8};
    movie.tracks[0].composition = {{5, 3000}, {5, 6000}};
    return movie;
}

TEST(Failure, AnySetOfSampleTables) {
    const char* tables[] = {"stsz", "stsc", "stco", "stts", "stss", "ctts"};
    for (unsigned mask = 0; mask < 64; mask++) {
        SCOPED_TRACE(mask);
        Movie movie = BaseMovie();
        for (unsigned i = 0; i < 6; i++) {
            if (mask & 1u << i)
                movie.tracks[0].replace[tables[i]] = {};
        }
        Session session(Mp4Builder::Build(movie));
        Exercise(session);
        EXPECT_EQ(session.tracks, 2u);
    }
}

TEST(Failure, ForgedTables) {
    const uint32_t most = 0xFFFFFFFF, top = 0x80000000;
    const Bytes far = FullBox("co64", Put().U32(2).U64(0xFFFFFFFFFFFFFFF0).U64(0x7FFFFFFFFFFFFFFF));
    struct Case { const char* name; const char* box; Bytes content; };
    const Case cases[] = {
        {"sizes: no table",            "stsz", Words("stsz", {0, most})},
        {"sizes: no count",            "stsz", Words("stsz", {5})},
        {"sizes: huge constant",       "stsz", Words("stsz", {0x7FFFFFF0, 3})},
        {"sizes: huge entries",        "stsz", Words("stsz", {0, 3, top, most, 0x7FFFFFFF})},
        {"sizes: count negative",      "stsz", Words("stsz", {1, top})},
        {"sizes: all zero",            "stsz", Words("stsz", {0, 3, 0, 0, 0})},
        {"times: sum wraps",           "stts", Words("stts", {2, most, 1, 2, 1})},
        {"times: no samples",          "stts", Words("stts", {1, 0, 5})},
        {"times: count wraps",         "stts", Words("stts", {0x40000001})},
        {"times: 2 GiB",               "stts", Words("stts", {1, 0x10000000, 1})},
        {"times: products wrap",       "stts", Words("stts", {1, 0x7FFFF, most})},
        {"times: last delta 0",        "stts", Words("stts", {2, 9, 5, 1, 0})},
        {"times: all deltas 0",        "stts", Words("stts", {1, 10, 0})},
        {"times: more than sizes",     "stts", Words("stts", {1, 1000, 90})},
        {"composition: no entries",    "ctts", Words("ctts", {most})},
        {"composition: sum wraps",     "ctts", Words("ctts", {2, most, 0, 2, 0})},
        {"composition: one offset",    "ctts", Words("ctts", {1, 1, top})},
        {"sync: number 0",             "stss", Words("stss", {2, 0, 5})},
        {"sync: far behind",           "stss", Words("stss", {2, 1, 1000000})},
        {"sync: count beyond",         "stss", Words("stss", {most, 1})},
        {"sync: the same thrice",      "stss", Words("stss", {3, 1, 1, 1})},
        {"sync: none",                 "stss", Words("stss", {0})},
        {"chunks: empty last entry",   "stsc", Words("stsc", {1, 1, 0, 1})},
        {"chunks: number 0",           "stsc", Words("stsc", {1, 0, 1, 1})},
        {"chunks: decreasing",         "stsc", Words("stsc", {2, 3, 1, 1, 1, 1, 1})},
        {"chunks: products wrap",      "stsc", Words("stsc", {2, 1, most, 1, 3, most, 1})},
        {"chunks: count beyond",       "stsc", Words("stsc", {most})},
        {"chunks: cut short",          "stsc", Words("stsc", {})},
        {"offsets: none",              "stco", Words("stco", {0})},
        {"offsets: count beyond",      "stco", Words("stco", {most, 48})},
        {"offsets: behind the file",   "stco", Words("stco", {2, 0x7FFFFFFF, most})},
        {"offsets: wrap in 64 bits",   "stco", far},
        {"edits: no entries",          "edts", Box("edts", Words("elst", {2}))},
        {"edits: one of two",          "edts", Box("edts", Words("elst", {2, 0, 9, most, most, 0}, 1))},
        {"edits: delay wraps",         "edts", Box("edts", Words("elst", {2, 0x7FFFFFFF, most, most, most, 0, 0, 9, 0, 0, 0}, 1))},
        {"media: timescale 0",         "mdhd", Words("mdhd", {0, 0, 0, 9, 0x55C40000})},
        {"media: timescale 1",         "mdhd", Words("mdhd", {0, 0, 1, most, 0x55C40000})},
        {"media: greatest timescale",  "mdhd", Words("mdhd", {0, 0, most, most, 0x55C40000})},
        {"sound: one byte of config",  "stsd", Stsd({AudioEntry("mp4a", Esds({0x12}))})},
        {"sound: version 999",         "stsd", Stsd({AudioEntry("mp4a", Esds({0x12, 0x10}), 999)})},
        {"sound: wave in wave",        "stsd", Stsd({AudioEntry("mp4a", Box("wave", Box("wave", Esds({0x12, 0x10}))), 1)})},
        {"video: set counts forged",   "stsd", Stsd({VideoEntry("avc1", Box("avcC", Put().Raw(Hex("0164000BFF1F")).Raw(Bytes(40, 0xFF))))})},
        {"video: zeros to the end",    "stsd", Stsd({VideoEntry("avc1", Box("avcC", Put().Raw(Hex("0164000BFFE100286764000B")).Zero(36)))})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Movie movie = BaseMovie();
        movie.tracks[0].replace[c.box] = c.content;
        Session session(Mp4Builder::Build(movie));
        Exercise(session);
        EXPECT_EQ(session.tracks, 2u);
    }
}

TEST(Failure, ForgedBoxSizes) {
    struct Case { const char* name; Bytes header; };
    std::vector<Case> cases = {
        {"to the end",       Hex("00000000 66726565")},
        {"64-bit 0",         Hex("00000001 66726565 0000000000000000")},
        {"64-bit 15",        Hex("00000001 66726565 000000000000000F")},
        {"64-bit -8",        Hex("00000001 66726565 FFFFFFFFFFFFFFF8")},
        {"64-bit greatest",  Hex("00000001 66726565 7FFFFFFFFFFFFFFF")},
        {"negative",         Hex("80000000 66726565")},
        {"greatest",         Hex("7FFFFFFF 66726565")},
    };
    for (uint8_t size = 2; size < 8; size++)
        cases.push_back({"smaller than its header", Put().U32(size).Text("moov")});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Movie top = BaseMovie(), inside = BaseMovie();
        top.front = inside.replace["mvhd"] = c.header;
        for (const Movie& movie : {top, inside}) {
            Session session(Mp4Builder::Build(movie));
            EXPECT_EQ(session.Open(), -1);
            Exercise(session);
        }
    }
}

TEST(Failure, OneHugeChunkStaysFast) {
    const size_t part = 10000;
    Track track = AudioTrack(0);
    for (size_t i = 0; i < 12 * part; i++)
        track.samples.push_back(Bytes(1 + i % 3, 7));
    track.samplesPerChunk = static_cast<uint32_t>(track.samples.size());
    Session session(Mp4Builder::Build({.tracks = {track}}));
    ASSERT_TRUE(session.Start());
    std::clock_t first = 0, last = 0;  // processor time: other work on the host does not count
    for (int i = 0; i < 12; i++) {
        const std::clock_t start = std::clock();
        ASSERT_EQ(session.Deliver(part).size(), part);
        (i == 0 ? first : last) = std::clock() - start;
    }
    EXPECT_LT(last, 5 * first + CLOCKS_PER_SEC / 10);  // the way to a sample does not grow with its number
}

TEST(Failure, CutFiles) {
    const Bytes whole = Mp4Builder::Build(BaseMovie());
    for (size_t size = 1; size < whole.size(); size += size < 32 ? 1 : 61) {
        SCOPED_TRACE(size);
        Session cut(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))), claimed(whole);
        Exercise(cut);
        cut.Close();
        claimed.file.claimedSize = static_cast<int64_t>(whole.size());
        claimed.file.bytes.resize(size);
        Exercise(claimed);
        EXPECT_EQ(KivMp4GetNextUnit(claimed.demux, &claimed.unit), -1);  // the first short answer ended it
    }
}

TEST(Failure, MisbehavingPlayer) {
    using Fault = MemoryFile::Fault;
    struct Case { const char* name; Fault fault; uint32_t count; bool harmless; };
    const Case cases[] = {{"short", Fault::Short, 1, false}, {"more than asked", Fault::Over, 1, false},
                          {"error", Fault::Error, 1, false}, {"empty for a while", Fault::Empty, 100, true}};
    Movie movie = BaseMovie();
    movie.tracks[0].samples[5] = Prefixed(4, {Nal(150000)});  // read past the buffer
    const Bytes content = Mp4Builder::Build(movie);
    for (const Case& c : cases) {
        for (uint32_t call : {0, 1, 2, 3, 4}) {
            SCOPED_TRACE(std::string(c.name) + " at call " + std::to_string(call));
            Session session(content);
            session.file.fault = c.fault;
            session.file.faultCall = call;
            session.file.faultCount = c.count;
            const bool started = session.Start();
            EXPECT_TRUE(started || !c.harmless);
            if (started) {
                const size_t units = session.Deliver().size();
                EXPECT_TRUE(Among(session.result, {1, -1}));
                EXPECT_EQ(units == 22, session.result == 1);
                EXPECT_TRUE(units == 22 || !c.harmless);
            }
            Exercise(session);
        }
    }
}

TEST(Failure, EndlesslyEmptyFileCanBeDestroyed) {
    Session session(Mp4Builder::Build(BaseMovie()));
    session.file.fault = MemoryFile::Fault::Empty;
    ASSERT_TRUE(session.Create());
    while (session.file.Reads().empty())
        std::this_thread::yield();
    const auto start = Clock::now();
    session.Close();
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(5));
}

TEST(Failure, MissingHeap) {
    const Bytes content = Mp4Builder::Build(BaseMovie());
    int opened = 0, refused = 0;
    const auto round = [&](size_t capacity) {
        SCOPED_TRACE(capacity);
        Session session(content, capacity);
        const bool open = session.Open() == 0;
        Exercise(session);
        open ? opened++ : refused++;
    };
    for (size_t capacity = 0; capacity < 6000; capacity += 200)
        round(capacity);
    for (size_t capacity = 196608; capacity < 196608 + 40000; capacity += 160)
        round(capacity);
    EXPECT_GT(opened, 10);
    EXPECT_GT(refused, 10);
}

TEST(Failure, MissingClientMemory) {
    Movie movie = BaseMovie();
    movie.tracks[0] = VideoTrack(300);  // tables above 1024 bytes
    movie.tracks[0].sync = std::vector<uint32_t>(300, 1);
    movie.tracks[0].composition = std::vector<Pair>(300, {1, 3000});
    const Bytes content = Mp4Builder::Build(movie);
    uint32_t calls = 1;
    for (uint32_t n = 0; n < calls; n++) {
        for (const bool from : {false, true}) {
            SCOPED_TRACE(std::to_string(n) + (from ? " and all behind" : " alone"));
            Session session(content);
            session.memory.failCall = n;
            session.memory.failFrom = from;
            Exercise(session);
            calls = std::max(calls, session.memory.Calls());
        }
    }
    EXPECT_GT(calls, 5u);
}

}  // namespace
}  // namespace kivmp4::test
