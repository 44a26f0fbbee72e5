// Each fault planted in a good clip is found by its rule, and by no other but those that it implies.
#include "cli/inspectAgreement.h"
#include "support/Mp4Builder.h"

#include <gtest/gtest.h>

namespace kivmp4::test {
namespace {

using Names = std::vector<std::string>;

Names RulesOf(const std::vector<check::Finding>& findings) {
    Names names;
    for (const check::Finding& finding : findings)
        names.push_back(finding.rule->name);
    return names;
}

std::string Told(const std::vector<check::Finding>& findings) {
    std::string text;
    for (const check::Finding& finding : findings)
        text += check::WithPlace(finding) + "\n";
    return text;
}

// One second of picture, a key frame each half, and of sound.
Movie Good() {
    Movie movie{.tracks = {VideoTrack(30), AudioTrack(47)}};
    movie.tracks[0].replace["stss"] = Words("stss", {2, 1, 16});
    for (size_t key : {0, 15})
        movie.tracks[0].samples[key] = Prefixed(4, {Hex("65 88 84")});
    return movie;
}

Bytes Edits(const Numbers& words) { return Box("edts", Words("elst", words)); }
Bytes Tkhd(uint32_t flags) { return FullBox("tkhd", Bytes(80), 0, flags); }
Bytes VideoWith(const Bytes& record) { return VideoEntry("avc1", Box("avcC", record)); }

struct Fault {
    const char* name;
    void (*plant)(Movie&);
    Names rules;
    const char* path;  // of the first finding
};

// Boxes of the first track stand in `Video`, those of the second in `Audio`.
Track& Video(Movie& movie) { return movie.tracks[0]; }
Track& Audio(Movie& movie) { return movie.tracks[1]; }
const std::string kMinf = "moov/trak[0]/mdia/minf/";  // in front of paths from "stbl" on

const Fault kFaults[] = {
    {"good", [](Movie&) {}, {}, ""},
    {"good, wide", [](Movie& m) { m.wide = true; }, {}, ""},
    {"good, encoder delay",
     [](Movie& m) {
         Audio(m).replace["edts"] = Edits({1, 1000, 1024, 0x10000});
     },
     {},
     ""},
    {"good, applied delay",
     [](Movie& m) {
         Video(m).replace["edts"] = Edits({2, 400, ~0u, 0x10000, 1000, 0, 0x10000});
     },
     {},
     ""},
    {"index last", [](Movie& m) { m.moovLast = true; }, {"moov-last"}, "moov"},
    {"fragments", [](Movie& m) { m.back = Box("moof", {}); }, {"fragmented"}, "moof"},
    {"a box past the end", [](Movie& m) { m.back = Put().U32(100).Text("free"); }, {"truncated"}, "free"},
    {"a box past its parent",
     [](Movie& m) { Video(m).replace["stss"] = Put().U32(4000).Text("stss").Raw(Bytes(8)); },
     {"box-frame", "table-missing", "table-missing", "table-missing"},
     "moov/trak[0]/mdia/minf/stbl/stss"},
    {"not supported", [](Movie& m) { Video(m).entry = VideoEntry("hvc1", {}); }, {"unsupported-track"}, "moov/trak[0]"},
    {"more samples than are looked at",
     [](Movie& m) {
         Audio(m).replace["stsz"] = Words("stsz", {1, 9u << 20});
         m.back = Box("free", Bytes(size_t{9} << 20));
     },
     {"limited", "stts-count", "chunk-count"},
     "moov/trak[1]/mdia/minf/stbl/stsz"},
    {"two descriptions",
     [](Movie& m) {
         Video(m).replace["stsd"] = Stsd({Video(m).entry, Video(m).entry});
     },
     {"unsupported-track"},
     "moov/trak[0]"},
    {"encrypted", [](Movie& m) { Audio(m).entry = AudioEntry("enca", {}); }, {"encrypted-track"}, "moov/trak[1]"},
    {"disabled", [](Movie& m) { Audio(m).replace["tkhd"] = Tkhd(2); }, {"disabled-track"}, "moov/trak[1]"},
    {"nothing to play",
     [](Movie& m) { Video(m).replace["tkhd"] = Audio(m).replace["tkhd"] = Tkhd(0); },
     {"no-track", "disabled-track", "disabled-track"},
     "moov"},
    {"no sequence parameter set",
     [](Movie& m) { Video(m).entry = VideoWith(AvcC(4, {}, {{0x68}})); },
     {"parameter-sets"},
     "moov/trak[0]/mdia/minf/stbl/stsd/avc1/avcC"},
    {"parameter set cut off",
     [](Movie& m) { Video(m).entry = VideoWith(Hex("0164000B FF E1 0009 67")); },
     {"parameter-sets"},
     "moov/trak[0]/mdia/minf/stbl/stsd/avc1/avcC"},
    {"no media timescale", [](Movie& m) { Audio(m).timescale = 0; }, {"timescale-zero"}, "moov/trak[1]/mdia/mdhd"},
    {"no movie timescale",
     [](Movie& m) {
         m.replace["mvhd"] = Words("mvhd", {0, 0, 0, 1000});
     },
     {"timescale-zero"},
     "moov/mvhd"},
    {"late start ignored",
     [](Movie& m) {
         Audio(m).replace["edts"] = Edits({2, 1400, ~0u, 0x10000, 1000, 1024, 0x10000});
     },
     {"edit-ignored", "duration"},
     "moov/trak[1]/edts/elst"},
    {"early start ignored",
     [](Movie& m) {
         Video(m).replace["edts"] = Edits({1, 700, 27000, 0x10000});
     },
     {"edit-ignored"},
     "moov/trak[0]/edts/elst"},
    {"cut in two",
     [](Movie& m) {
         Video(m).replace["edts"] = Edits({2, 500, 0, 0x10000, 500, 48000, 0x10000});
     },
     {"edit-ignored"},
     "moov/trak[0]/edts/elst"},
    {"no chunk offsets",
     [](Movie& m) { Video(m).replace["stco"] = Box("free", {}); },
     {"table-missing"},
     "moov/trak[0]/mdia/minf/stbl"},
    {"forged count",
     [](Movie& m) {
         Video(m).replace["stts"] = Words("stts", {~0u, 30, 3000});
     },
     {"table-short"},
     "stbl/stts"},
    {"too few times",
     [](Movie& m) {
         Video(m).replace["stts"] = Words("stts", {1, 29, 3000});
     },
     {"stts-count"},
     "stbl/stts"},
    {"too many offsets",
     [](Movie& m) {
         Video(m).replace["ctts"] = Words("ctts", {1, 31, 3000});
     },
     {"ctts-count"},
     "stbl/ctts"},
    {"key past the end",
     [](Movie& m) {
         Video(m).replace["stss"] = Words("stss", {3, 1, 16, 31});
     },
     {"stss-entry"},
     "stbl/stss"},
    {"keys not in order",
     [](Movie& m) {
         Video(m).replace["stss"] = Words("stss", {3, 1, 16, 16});
     },
     {"stss-entry"},
     "stbl/stss"},
    {"map starts late",
     [](Movie& m) {
         Video(m).replace["stsc"] = Words("stsc", {1, 2, 1, 1});
     },
     {"stsc-entry"},
     "stbl/stsc"},
    {"map past the chunks",
     [](Movie& m) {
         Video(m).replace["stsc"] = Words("stsc", {2, 1, 1, 1, 31, 1, 1});
     },
     {"stsc-entry"},
     "stbl/stsc"},
    {"times of nothing",
     [](Movie& m) {
         Video(m).replace["stts"] = Words("stts", {2, 29, 3000, 1, 0});
     },
     {"stts-zero"},
     "stbl/stts"},
    {"media header",
     [](Movie& m) {
         Video(m).replace["mdhd"] = Words("mdhd", {0, 0, 90000, 180000, 0x55C40000});
     },
     {"duration"},
     "moov/trak[0]/mdia/mdhd"},
    {"movie header",
     [](Movie& m) {
         m.replace["mvhd"] = Words("mvhd", {0, 0, 1000, 9000});
     },
     {"duration"},
     "moov/mvhd"},
    {"one key frame",
     [](Movie& m) {
         Video(m).delta = 45000;  // 15 s
         Video(m).replace["stss"] = Words("stss", {1, 1});
         Video(m).samples[15] = Prefixed(4, {Hex("41 9A")});
         m.replace["mvhd"] = Words("mvhd", {0, 0, 1000, 15000});
     },
     {"one-gop"},
     "stbl/stss"},
    {"NAL length", [](Movie& m) { Video(m).samples[3][3] = 200; }, {"nal-length"}, "mdat"},
    {"key frame that is none",
     [](Movie& m) { Video(m).samples[15] = Prefixed(4, {Hex("41 9A")}); },
     {"sync-nal"},
     "mdat"},
    {"key frame not marked", [](Movie& m) { Video(m).samples[7] = Prefixed(4, {Hex("65 88")}); }, {"sync-nal"}, "mdat"},
    {"parameter sets inside",
     [](Movie& m) {
         Video(m).samples[15] = Prefixed(4, {Hex("67 64"), Hex("68 EE"), Hex("65 88")});
     },
     {"parameter-sets-inside"},
     "mdat"},
    {"sound 200 KiB away",
     [](Movie& m) {
         Video(m).samples[0] = Prefixed(4, {Hex("65 88"), Nal(200 << 10)});
     },
     {"interleave-window"},
     "mdat"},
    {"sound 1.2 MiB away",
     [](Movie& m) {
         Video(m).samples[0] = Prefixed(4, {Hex("65 88"), Nal(1200 << 10)});
     },
     {"interleave-told"},
     "mdat"},
};

TEST(Check, FindsEachPlantedFaultAndNoOther) {
    for (const Fault& fault : kFaults) {
        SCOPED_TRACE(fault.name);
        Movie movie = Good();
        fault.plant(movie);
        const auto findings = FindingsIn(Mp4Builder::Build(movie));
        EXPECT_EQ(RulesOf(findings), fault.rules) << Told(findings);
        const std::string path = fault.path;
        if (!findings.empty()) {
            EXPECT_EQ(findings[0].path, path.starts_with("stbl/") ? kMinf + path : path);
        }
    }
}

size_t Position(const Bytes& bytes, std::string_view type, int nth = 0) {
    auto found = bytes.begin();
    for (; nth >= 0; nth--)
        found = std::search(found + 1, bytes.end(), type.begin(), type.end());
    return static_cast<size_t>(found - bytes.begin());
}

Bytes With(Bytes bytes, size_t at, const Bytes& other) {
    std::copy(other.begin(), other.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    return bytes;
}

// Faults in a file that has been built. The entries of a table start 12 bytes past its type.
TEST(Check, FindsFaultsInTheBytesOfAFile) {
    const Bytes good = Mp4Builder::Build(Good());
    const size_t offsets = Position(good, "stco") + 12, sizes = Position(good, "stsz") + 16;
    const auto mdat = static_cast<uint32_t>(Position(good, "mdat"));
    struct Case {
        const char* name;
        Bytes bytes;
        Names rules;
        uint64_t offset;   // of the first finding
        const char* part;  // of its message
    };
    const Case cases[] = {
        {"empty", {}, {"not-mp4"}, 0, "is empty"},
        {"text", Put().Text("Dear reader,\n"), {"not-mp4"}, 0, "a text file"},
        {"another container", Hex("1A45DFA3 01000000"), {"not-mp4"}, 0, "Matroska"},
        {"metadata of a copied file", Hex("00051607 00020000"), {"not-mp4"}, 0, "AppleDouble"},
        {"noise", Hex("C3 28 A0 A1 E2 28"), {"not-mp4"}, 0, "c3 28 a0 a1"},
        {"cut off in its data",
         Bytes(good.begin(), good.end() - 100),
         {"truncated"},
         mdat - uint64_t{4},
         "100 more than the file has; readable: 30 of 30 units of trak[0] (up to 1.000 s), 42 of 47 units of trak[1] "
         "(up to 0.896 s)"},
        {"no index", Box("mdat", Bytes(100)), {"no-moov"}, 0, "no 'moov'"},
        {"cut off before its index",
         Put().U32(5000).Text("mdat").Zero(100),
         {"truncated", "no-moov"},
         0,
         "claims 5000"},
        {"a sample past the end",
         With(good, offsets + 4, Put().U32(good.size() - 3)),
         {"offset-outside"},
         good.size() - 3,
         "1 samples, the first is 1"},
        {"a sample in the index", With(good, offsets + 4, Put().U32(40)), {"offset-outside"}, 40, "the first is 1 "},
        {"a size beyond the file",
         With(good, sizes + 16, Put().U32(0x7FFFFFFF)),
         {"offset-outside"},
         0,
         "the first is 4 "},
        {"two samples at one place",
         With(good, offsets + 4,
              Bytes(good.begin() + static_cast<std::ptrdiff_t>(offsets),
                    good.begin() + static_cast<std::ptrdiff_t>(offsets) + 4)),
         {"overlap"},
         mdat + uint64_t{4},
         "sample 1 of trak[0] starts inside sample 0 of trak[0]"},
        {"too many samples in a chunk",
         With(good, Position(good, "stsc") + 16, Put().U32(2)),
         {"chunk-count", "overlap"},
         0,
         "hold 60 samples, 'stsz' has 30"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto findings = FindingsIn(c.bytes, check::Extent::Tables);
        ASSERT_EQ(RulesOf(findings), c.rules) << Told(findings);
        EXPECT_TRUE(findings[0].message.find(c.part) != std::string::npos) << findings[0].message;
        if (c.offset) {
            EXPECT_EQ(findings[0].offset, c.offset);
        }
    }
}

}  // namespace
}  // namespace kivmp4::test
