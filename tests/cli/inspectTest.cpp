// The command's own reader: agreement with the module on generated files and on clips, and what it makes of odd boxes.
#include "cli/inspectAgreement.h"

#include "commands/Boxes.h"
#include "print/Json.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

namespace kivmp4::test {
namespace {

// A table of runs over `count` samples, each run with a value of its own.
Numbers Runs(std::minstd_rand& random, uint32_t count, uint32_t most, uint32_t scale) {
    Numbers words = {0};
    while (count) {
        const uint32_t run = std::min<uint32_t>(count, static_cast<uint32_t>(1 + random() % most));
        words.push_back(run);
        words.push_back(static_cast<uint32_t>(scale * (1 + random() % 4)));
        words[0]++;
        count -= run;
    }
    return words;
}

// The chunk map of a builder's track with `perChunk`, told in one entry for each chunk.
Numbers LongMap(uint32_t count, uint32_t perChunk) {
    Numbers words = {0};
    for (uint32_t first = 0; first < count; first += perChunk) {
        words.insert(words.end(), {++words[0], std::min(perChunk, count - first), 1});
    }
    return words;
}

Movie Generate(uint32_t seed) {
    std::minstd_rand random(seed);
    random.discard(10);
    Movie movie{.tracks = {VideoTrack(20 + static_cast<uint32_t>(random() % 200)),
                           AudioTrack(20 + static_cast<uint32_t>(random() % 200))}};
    const uint32_t scales[] = {90000, 48000, 44100, 600, 15360, 1000, 24000};
    for (Track& track : movie.tracks) {
        const auto count = static_cast<uint32_t>(track.samples.size());
        track.timescale = scales[random() % 7];
        track.samplesPerChunk = static_cast<uint32_t>(1 + random() % 9);
        track.replace["stts"] = Words("stts", Runs(random, count, 40, track.timescale / 100));
        track.replace["stsc"] = Words("stsc", LongMap(count, track.samplesPerChunk));
    }
    const auto count = static_cast<uint32_t>(movie.tracks[0].samples.size());
    movie.tracks[0].replace["ctts"] = Words("ctts", Runs(random, count, 3, movie.tracks[0].timescale / 100));
    Numbers keys = {0};
    for (uint32_t key = 1; key <= count; key += static_cast<uint32_t>(1 + random() % 20)) {
        keys.push_back(key);
        keys[0]++;
    }
    movie.tracks[0].replace["stss"] = Words("stss", keys);
    if (random() % 2)
        movie.tracks[1].replace["edts"] = Box("edts", Words("elst", {2, 400, ~0u, 0x10000, 1000, 0, 0x10000}));
    movie.wide = random() % 2;
    movie.moovLast = random() % 2;
    if (random() % 2)
        movie.mdatBox = Box64;
    return movie;
}

TEST(Inspect, AgreesWithTheModuleOnGeneratedFiles) {
    for (uint32_t seed = 1; seed <= 60; seed++) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const Movie movie = Generate(seed);
        EXPECT_EQ(ExpectAgreement(Mp4Builder::Build(movie)),
                  movie.tracks[0].samples.size() + movie.tracks[1].samples.size());
    }
    Movie constant{.tracks = {AudioTrack(50)}};  // sizes without a table
    for (Bytes& sample : constant.tracks[0].samples)
        sample.resize(10);
    constant.tracks[0].replace["stsz"] = Words("stsz", {10, 50});
    EXPECT_EQ(ExpectAgreement(Mp4Builder::Build(constant)), 50u);
}

// The samples lie one after the other, so that chunks may have any length.
TEST(Inspect, AgreesWithTheModuleOnChunksOfManyLengths) {
    std::minstd_rand random(7);
    for (int round = 0; round < 20; round++) {
        Movie movie{.tracks = {AudioTrack(80)}, .moovLast = true};
        const Bytes first = Mp4Builder::Build(movie);
        const std::string_view name = "mdat";
        auto offset = static_cast<uint32_t>(std::search(first.begin(), first.end(), name.begin(), name.end()) -
                                            first.begin() + 4);
        Numbers map = {0}, offsets = {0};
        for (uint32_t sample = 0, before = 0; sample < 80;) {
            const uint32_t length = std::min(80 - sample, static_cast<uint32_t>(1 + random() % 4));
            offsets.push_back(offset);
            if (++offsets[0]; length != before)
                map.insert(map.end(), {offsets[0], length, 1});
            before = length;
            for (uint32_t end = sample + length; sample < end; sample++)
                offset += static_cast<uint32_t>(movie.tracks[0].samples[sample].size());
        }
        map[0] = static_cast<uint32_t>(map.size() / 3);
        movie.tracks[0].replace = {{"stsc", Words("stsc", map)}, {"stco", Words("stco", offsets)}};
        const Bytes bytes = Mp4Builder::Build(movie);
        EXPECT_EQ(ExpectAgreement(bytes), 80u);
        EXPECT_EQ(FindingsIn(bytes).size(), 1u);  // the index lies last
    }
}

TEST(Inspect, TurnsMatricesIntoDegrees) {
    struct Case {
        const char* name;
        int32_t a, b, c, d;
        int degrees;
        bool mirrored;
    };
    const Case cases[] = {
        {"upright", 1, 0, 0, 1, 0, false},         {"on its right side", 0, 1, -1, 0, 90, false},
        {"upside down", -1, 0, 0, -1, 180, false}, {"on its left side", 0, -1, 1, 0, 270, false},
        {"mirrored", -1, 0, 0, 1, 0, true},        {"askew", 1, 1, -1, 1, -1, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Put tkhd;
        tkhd.Zero(36).Each(Numbers{uint32_t(c.a), uint32_t(c.b), 0, uint32_t(c.c), uint32_t(c.d)}, 4).Zero(24);
        Movie movie{.tracks = {VideoTrack()}};
        movie.tracks[0].replace["tkhd"] = FullBox("tkhd", tkhd, 0, 1);
        const inspect::File file(Mp4Builder::Build(movie));
        const inspect::Movie read(file);
        EXPECT_EQ(read.tracks.at(0).rotation, c.degrees);
        EXPECT_EQ(read.tracks[0].mirrored, c.mirrored);
    }
}

TEST(Inspect, BelievesNoCount) {
    Movie movie{.tracks = {AudioTrack(4)}};
    Replace& forge = movie.tracks[0].replace;
    for (const char* type : {"stts", "ctts", "stss", "stsc", "stco"})
        forge[type] = Words(type, {~0u, 1, ~0u, 1});
    forge["stsz"] = Words("stsz", {1, ~0u});
    const Bytes bytes = Mp4Builder::Build(movie);
    const inspect::File file(bytes);
    const inspect::Movie read(file);
    const inspect::Track& track = read.tracks.at(0);
    EXPECT_EQ(track.stts.claimed, ~0u);
    EXPECT_EQ(track.stts.count, 1u);
    EXPECT_EQ(track.stsc.count, 1u);
    EXPECT_EQ(track.stco.count, 3u);
    EXPECT_EQ(inspect::ListSamples(track).size(), bytes.size() + 1);
}

// Forged tables have times that no number of ticks can tell.
TEST(Inspect, TimesEndWhereTicksDo) {
    using inspect::kMostTicks, inspect::ToTicks;
    const struct {
        int64_t ticks, expected;
    } kCases[] = {
        {ToTicks(3, 2), 135000},
        {ToTicks(-1, 44100), -2},
        {ToTicks(7, 0), 0},
        {ToTicks(int64_t{1} << 55, 1), kMostTicks},
        {ToTicks(-(int64_t{1} << 55), 1), -kMostTicks},
        {ToTicks(1.5), 135000},
        {ToTicks(1e18), kMostTicks},
    };
    for (const auto& each : kCases)
        EXPECT_EQ(each.ticks, each.expected);
}

TEST(Inspect, FindsWhereBoxesLie) {
    const Bytes inner =
        Join({Box("free", Bytes(3)), Box("free", {}), Box("udta", Bytes(4)), Box64("trak", Box("tkhd", {}))});
    const inspect::File file(Join({Box("ftyp", Put().Text("isom").U32(0).Text("mp42")), Box("moov", inner)}));
    const inspect::BoxTree tree(file);
    const inspect::Box& moov = *tree.Root().Child("moov");
    ASSERT_EQ(moov.children.size(), 4u);
    EXPECT_EQ(moov.children[1]->Path(), "moov/free[1]");
    EXPECT_EQ(moov.children[1]->offset, 20u + 8 + 11);
    EXPECT_EQ(moov.children[2]->problem, "");  // four zero bytes end user data
    EXPECT_EQ(tree.Root().Find("moov/trak/tkhd")->Path(), "moov/trak[0]/tkhd");
    EXPECT_EQ(tree.Root().Find("moov/trak/tkhd")->offset, 20u + 8 + 11 + 8 + 12 + 16);
    EXPECT_EQ(tree.Root().Find("moov/trak/mdia"), nullptr);
}

TEST(Boxes, PathsAreMatchedLevelByLevel) {
    struct Case {
        const char* pattern;
        const char* path;
        bool matches;
    };
    const Case cases[] = {
        {"moov", "moov", true},
        {"moov", "moov/mvhd", false},
        {"moov/trak", "moov/trak[1]", true},
        {"moov/trak[1]", "moov/trak[0]", false},
        {"moov/**/stts", "moov/trak[0]/mdia/stts", true},
        {"**/stts", "stts", true},
        {"moov/*", "moov/trak[0]", true},
        {"moov/*", "moov/trak[0]/mdia", false},
        {"**/**/**/stts/**/x", "a/b/c/d/e/f/g", false},
        {"", "moov", false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(cli::Matches(c.pattern, c.path), c.matches) << c.pattern << " of " << c.path;
}

TEST(Boxes, ShowFieldsAndRowsOfTheirTables) {
    Movie movie{.tracks = {VideoTrack(3)}};
    movie.tracks[0].replace["ctts"] = Words("ctts", {2, 1, ~0u, 2, 7});
    movie.tracks[0].replace["stts"] = Words("stts", {~0u, 3, 3000});
    movie.back = Box("a\x1b[m", {1, 2, 3});
    const inspect::File file(Mp4Builder::Build(movie));
    const inspect::Movie read(file);
    struct Case {
        const char* name;
        cli::BoxesOptions options;
        const char* part;
    };
    const Case cases[] = {
        {"header",
         {.path = "moov/mvhd"},
         "moov/mvhd  at 0x20, 28 bytes, version 0, flags 0x000000, timescale 1000, duration 1000\n"},
        {"brands",
         {.depth = 0},
         "ftyp  at 0x0, 24 bytes, major_brand isom, minor_version 512, compatible_brands [\"isom\",\"mp42\"]\n"},
        {"negative offset", {.path = "**/ctts", .entries = 9}, "entry_count 2\n    [1,-1]\n    [2,7]\n"},
        {"forged count", {.path = "**/stts", .entries = ~0u}, "entry_count 4294967295\n    [3,3000]\n"},
        {"strange type, its bytes", {.depth = 0, .hex = true}, "a\\x1b[m  at"},
    };
    for (const Case& c : cases) {
        const std::string text = cli::BoxesText(read, c.options);
        EXPECT_TRUE(text.find(c.part) != std::string::npos) << c.name << ":\n" << text;
    }
    EXPECT_EQ(cli::BoxesText(read, {.depth = 0}).find("mvhd"), std::string::npos);
    const auto json = cli::BoxesJson(read, {.entries = 9});
    const auto& moov = json["boxes"][1];
    EXPECT_EQ(moov["children"][0]["fields"]["timescale"], 1000);
    EXPECT_EQ(json["size"], file.Size());
    EXPECT_EQ(cli::BoxesJson(read, {.path = "**/ctts", .entries = 1})["boxes"][0]["entries"].dump(), "[[1,-1]]");
}

// KIVMP4_CLIPS names lines of a clip and the rules that it breaks.
TEST(InspectClips, AgreeWithTheModuleAndBreakNoOtherRule) {
    const char* list = std::getenv("KIVMP4_CLIPS");
    ASSERT_TRUE(list) << "run by inspect_clips.sh";
    std::ifstream lines(list);
    size_t clips = 0;
    for (std::string line; std::getline(lines, line); clips++) {
        SCOPED_TRACE(line);
        const size_t end = std::min(line.find(' '), line.size());
        std::ifstream stream(line.substr(0, end), std::ios::binary);
        const Bytes bytes{std::istreambuf_iterator<char>(stream), {}};
        const size_t units = ExpectAgreement(bytes);
        EXPECT_GT(units, 20u);
        ASSERT_FALSE(HasFailure());
        std::string rules, told;
        for (const check::Finding& finding : FindingsIn(bytes)) {
            rules += std::string(" ") + finding.rule->name;
            told += check::WithPlace(finding) + "\n";
        }
        EXPECT_EQ(rules, line.substr(end)) << told;
    }
    EXPECT_GT(clips, 9u);
}

}  // namespace
}  // namespace kivmp4::test
