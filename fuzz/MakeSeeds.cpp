// The seeds of the fuzz targets, each with what it is made for: seed_tests --write FOLDER makes them, seed_tests alone
// checks that the files are these and that each reaches its line of the log.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "codec/H264Sps.h"
#include "support/Session.h"
#include "support/Sps.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace kivmp4::test {
namespace {

constexpr int kAny = -2, kRefused = -1;

// What a script begins with: reads that fail (how, from which call, how many), sizes, call from which the player's memory
// is refused, heap, and path and log level. Calls follow; those after creating and opening look at all that tracks have.
Bytes Script(const char* head = "00000000 000010", const char* calls = "00 01 14 24 34 13 23 33 06 06 0A") {
    return Join({Hex(head), Hex(calls),
                 Hex("0B 07 07 07 08 08 08 4914 05 6950 05 29 39 05 0B 4905 0D 06 4914 07 08 0E 05 03 14 0F 02")});
}
constexpr const char* kStray = "F1 F3 F4 F5 F7 F9 FA FB FC FD FE F2 0A 03 00 D1 E1 0A 01 E4 EC E5 E7 E8 06 04";
Bytes Calls(const char* calls) { return Script("00000000 000010", calls); }

struct Seed {
    std::string name;
    Bytes file;           // parameter sets in a record stand alone
    std::string reaches;  // by the script; a part of what is logged
    int units = kAny;
    Bytes script = Script();

    bool IsRecord() const { return !file.empty() && file[0] == 1; }
    Bytes Input() const { return IsRecord() ? file : Join({file, script, {static_cast<uint8_t>(script.size())}}); }
};

Bytes One(const Movie& base = {}, Track track = VideoTrack()) {
    Movie movie = base;
    movie.tracks = {track};
    return Mp4Builder::Build(movie);
}
Bytes With(const char* type, const Bytes& box, Track track = VideoTrack()) {
    track.replace[type] = box;
    return One({}, track);
}
Bytes Entry(const Bytes& entry) { return With("stsd", Stsd({entry})); }
Bytes Video(const char* type, const Bytes& children) { return Entry(VideoEntry(type, children)); }
Bytes Sound(const Bytes& children, uint16_t version = 0) { return Entry(AudioEntry("mp4a", children, version)); }
Bytes Avc(const Bytes& record) { return Video("avc1", Box("avcC", record)); }
// Pictures beside sound, with key frames 0, 3 and 6.
Bytes Pair(const Replace& boxes = {}, Movie movie = {}) {
    movie.tracks = {VideoTrack(9), AudioTrack(6)};
    movie.tracks[0].replace = {{"stss", Words("stss", {3, 1, 4, 7})}};
    for (const auto& [type, box] : boxes)
        movie.tracks[0].replace[type] = box;
    return Mp4Builder::Build(movie);
}
Bytes PairWith(const char* type, const Numbers& words, uint8_t version = 0) {
    return Pair({{type, Words(type, words, version)}});
}
Bytes Times(const Numbers& stts, const Numbers& ctts = {0}) {
    return Pair({{"stts", Words("stts", stts)}, {"ctts", Words("ctts", ctts, 1)}});
}
Bytes Edits(const Numbers& words, uint8_t version = 0) {
    return Pair({{"edts", Box("edts", Words("elst", words, version))}});
}
Bytes Front(const char* box) { return One({.front = Hex(box)}); }
Bytes First(const Bytes& bytes, size_t size) { return Bytes(bytes.begin(), bytes.begin() + static_cast<int>(size)); }
Bytes Record(const Sps& sps) { return AvcC(4, {sps}, {}); }
// A file of a track for each beginning of the descriptors.
Bytes CutDescriptors(const Numbers& sizes) {
    const Bytes whole = Hex("03 80 16 0001 00 04 80 80 11 40 15 001800 0001F400 0001F400 05 02 1190");
    Movie movie;
    for (const uint32_t size : sizes) {
        movie.tracks.push_back(AudioTrack(1));
        movie.tracks.back().entry = AudioEntry("mp4a", FullBox("esds", First(whole, size)));
    }
    return Mp4Builder::Build(movie);
}

std::vector<Seed> Seeds() {
    const Bytes none, avc = VideoTrack().entry, avcC = Box("avcC", AvcC(4, {}, {})), pasp = Box("pasp", none);
    const Bytes wave = Hex("0600 0100 401F0000 401F0000 0100 0800 0000 0000"), deep = Hex("0164000BFFE100066764000B");
    const uint32_t most = ~0u, half = 1u << 31;
    const std::string valid = "D/ Movie [315]:  Num of valid tracks: 1 \n", pair = "Num of valid tracks: 2 \n";
    const std::string refused = "E/ Open [518]: ERROR_MP4DEMUX_INVALIDARG2 \n", invalid = "E/ Movie [309]:  Invalid";
    const std::string type = "E/ ParseSTSD [592]:  Unable to parse Elementary Type\n",
                      data = "E/ ParseSTSD [581]:  Inv";
    const std::string error = "E/ GetNextUnit [1121]:  Error from GetNext for track 0 \n";
    const std::string sps = "E/ ExtractSPSInformation [", unread = "W/ GetH264_SPSInformation [560]:  H264 SPS not pa";
    Sps full{.scalingMatrix = true, .aspect = 255, .buffering = 3};
    full.overscan = full.signal = full.colour = full.chromaLocation = full.timing = full.nalHrd = full.vclHrd = true;
    const Bytes sets = AvcC(4, {full, Nal(9)}, {Nal(1200), Nal(1200)}), whole = Record(full);
    // With start codes its sets are more than they take in the record: too many for the block of a unit before.
    Track many = VideoTrack();
    many.entry = VideoEntry("avc1", Box("avcC", AvcC(4, {}, std::vector<Bytes>(255, Nal(5)))));
    const auto toTheEnd = [](std::string_view box, const Bytes& content) -> Bytes {
        return Put().U32(0).Text(box).Raw(content);
    };
    return {
        // Formats and layouts that play.
        {"avc1", Pair(), "D/ GetNextSyncUnit [1005]:  audioTS[7680]  Video[9000] \n", 15},
        {"avc1_lengths_of_2", Avc(AvcC(2, {full}, {Hex("68 EE 3C 80")})), valid, 3},
        {"avcC_among_others", Video("avc1", Join({pasp, avcC, pasp})), valid, 3},
        {"jvt1", Video("jvt1", avcC), type, kRefused},
        {"mp4v", Video("mp4v", Esds(Hex("000001B0 03 00000120 00 C4 88"))), valid, 3},
        {"raw_video", Video("YUY2", {}), error, 0},
        {"mp4a_v0", Sound(Esds(Hex("1190"), 0xE0)), valid, 3},
        {"mp4a_v1_ends_in_zeros", Sound(Join({Esds(Hex("1190")), Bytes(4)}), 1), valid, 3},
        {"mp4a_v2", Sound(Esds(Hex("1190")), 2), valid, 3},
        {"mp4a_wave", Sound(Box("wave", Join({Box("frma", Bytes(4)), Esds(wave)})), 1), valid, 3},
        {"mp4a_six_channels", Sound(Esds(Hex("1230"))), "E/ GetType_AAC [214]:  Channels count (6) exceeds 2 \n", 3},
        {"waveform", Entry(AudioEntry("alaw", Esds(wave))), valid, 3},
        {"lpcm", Entry(AudioEntry("lpcm", {})), error, 0},
        {"version_1", With("mdhd", Words("mdhd", {0, 0, 0, 0, 90000, 0, 0, 0x15C70000}, 1)), valid, 3},
        {"offsets_and_sizes_of_64_bits", Pair({}, {.wide = true, .mdatBox = Box64}), pair, 15},
        {"moov_last", One({.moovLast = true}), "D/ ParseMDIA [528]: No CTTS box \n", 3},
        {"mdat_to_the_end", One({.mdatBox = toTheEnd}), "W/ ParseMDIA [560]:  No STSS box \n", 3},
        {"cut_box_at_the_end", One({.moovLast = true, .back = Hex("00000100 66726565 00")}), valid, 3},
        {"constant_sizes", With("stsz", Words("stsz", {24, 1})), valid, 1},
        {"one_sample", One({}, AudioTrack(1)), "D/ JumpPTS [864]:  Reset Demux to start of Video \n", 1},
        {"no_times", With("stts", none, AudioTrack()), "E/ GetJumpSampleIndex [768]:  Cannot start \n"},
        {"delay", Edits({2, 500, most, 0, 9, 0, 0}), pair, 15},
        {"delay_of_64_bits", Edits({2, 0, 500, most, most, 0, 0, 9, 0, 0, 0}, 1), pair, 15},
        {"three_edits", Edits({3, 500, most, 0, 9, 0, 0, 9, 0, 0}), pair, 15},
        {"edit_starts_in_the_media", Edits({1, 500, 3000, 0}), pair, 15},
        // Boxes at which a file or a track is refused; who goes on from a wrong size finds another box and the movie.
        {"size_0_of_64_bits", Front("00000001 66726565 0000000000000000"), refused, kRefused},
        {"size_within_its_header", Front("00000001 66726565 00000000 0000000C 66726565 00000000"), refused, kRefused},
        {"size_below_the_header", Front("00000004 00000008 66726565"), refused, kRefused},
        {"size_with_the_top_bit", Front("80000000 66726565"), refused, kRefused},
        {"size_below_0", Front("00000001 66726565 FFFFFFFFFFFFFFF8"), refused, kRefused},
        {"size_of_2_63", Front("00000001 66726565 7FFFFFFFFFFFFFFF"), refused, kRefused},
        {"no_tkhd", With("tkhd", none), invalid, kRefused},
        {"track_disabled", With("tkhd", FullBox("tkhd", Bytes(80), 0, 6)), invalid, kRefused},
        {"tkhd_cut_short", With("tkhd", FullBox("tkhd", Bytes(71), 0, 1)), invalid, kRefused},
        {"tkhd_of_the_least_size", With("tkhd", FullBox("tkhd", Bytes(72), 0, 7)), valid, 3},
        {"tkhd_of_64_bits_cut", With("tkhd", FullBox("tkhd", Bytes(83), 1, 1)), invalid, kRefused},
        {"tkhd_of_64_bits", With("tkhd", FullBox("tkhd", Bytes(84), 1, 1)), valid, 3},
        {"tkhd_with_another_flag", With("tkhd", FullBox("tkhd", Bytes(80), 0, 0x010100)), invalid, kRefused},
        {"no_mdia", With("mdia", none), invalid, kRefused},
        {"no_minf", With("minf", none), "E/ ParseMDIA [485]:  No MINF box\n", kRefused},
        {"no_stbl", With("stbl", none), "E/ ParseMDIA [491]:  No STBL box\n", kRefused},
        {"no_stsd", With("stsd", none), "E/ ParseMDIA [518]:  Error parsing STSD box\n", kRefused},
        {"stsd_of_4_bytes", With("stsd", FullBox("stsd", {})), "E/ ParseSTSD [576]:  Currupted header", kRefused},
        {"stsd_version_1", With("stsd", Stsd({avc}, 1)), data, kRefused},
        {"two_entries", With("stsd", Stsd({avc, avc})), data, kRefused},
        {"count_without_entry", With("stsd", Words("stsd", {1})), "E/ ParseSTSD [587]:  No child present\n", kRefused},
        {"unknown_entry", Video("zzzz", {}), type, kRefused},
        {"avc1_without_avcC", Video("avc1", pasp), type, kRefused},
        {"avc1_with_an_empty_avcC", Video("avc1", Box("avcC", {})), type, kRefused},
        {"mp4v_without_esds", Video("mp4v", {}), type, kRefused},
        {"first_descriptor_tag_4", Sound(Esds(Hex("1190"), 0, 4)), type, kRefused},
        {"descriptor_size_runs_on", Sound(FullBox("esds", Hex("03 FFFFFF7F"))), type, kRefused},
        {"esds_version_1", Sound(FullBox("esds", Bytes(30), 1)), type, kRefused},
        {"decoder_config_cut_off", Sound(FullBox("esds", Hex("03 08 000100 04 03 401500"))), type, kRefused},
        {"descriptors_cut_at_each_level", CutDescriptors({1, 2, 5, 8, 23, 24, 25}), type, kRefused},
        {"record_of_4_bytes", Avc(First(sets, 4)), error, 0},
        {"record_cut_at_the_counts", Avc(First(sets, 6)), error, 0},
        {"record_cut_in_a_set", Avc(First(sets, 30)), error, 0},
        {"record_cut_before_the_second_kind", Avc(First(sets, whole.size() + 10)), error, 0},
        {"large_parameter_sets", Avc(sets), valid, 3},
        {"parameter_sets_outgrow_block", Mp4Builder::Build({.tracks = {many, AudioTrack()}, .order = {1}}), error, 1},
        {"wave_with_broken_esds", Sound(Box("wave", FullBox("esds", Hex("03 05"))), 1), valid, 0},
        // Tables that are missing or forged.
        {"no_stsz", With("stsz", none), "W/ ParseMDIA [498]:  Error parsing STSZ box\n", 0},
        {"stss_version_1", PairWith("stss", {1, 1}, 1), "W/ ParseMDIA [503]:  Error parsing KeyMap box\n"},
        {"no_stts", With("stts", none), "W/ ParseMDIA [508]:  Error parsing TimeStamps box\n"},
        {"mvhd_cut", One({.replace = {{"mvhd", Words("mvhd", {0, 0, 600})}}}), valid, 3},
        {"no_mvhd", One({.replace = {{"mvhd", none}}}), valid, 3},
        {"mvhd_of_64_bits", One({.replace = {{"mvhd", Words("mvhd", {0, 0, 0, 0, 1000, ~half, most}, 1)}}}), valid, 3},
        {"count_beyond_the_table", PairWith("stsz", {0, most, 20, 20}), pair},
        {"size_table_version_1", PairWith("stsz", {0, 9, 20, 20}, 1), pair},
        {"forged_sizes", PairWith("stsz", {0, 9, most, half, 0, 1u << 30, 3, 20, 20, 20, 20}), pair},
        {"unit_outgrows_heap", PairWith("stsz", {500000, 9}), error},
        {"chunk_numbers_apart", PairWith("stsc", {3, 1, 2, 1, 5, 1, 1, half, 3, 1}), pair},
        {"forged_chunk_maps", PairWith("stsc", {4, 0, 0, 1, 3, most, 1, 2, half, 1, 9, 1, 1}), pair},
        {"forged_chunk_offsets", PairWith("stco", {4, most, 0, half, 40}), "E/ Read [256]: Read():  File End reached."},
        {"stts_without_entries", Times({0}), "W/ ParseMDIA [535]:  No STTS box present \n"},
        {"counts_wrap", Times({2, most, 1, most, 1}, {2, most, 1, most, 1}), "E/ ParseSTTS [697]"},
        {"two_gib_of_times", Times({1, 1u << 28, 1}, {}), "E/ ParseSTTS [697]:  Unable to allcoate"},
        {"times_wrap", Times({3, 3, most, 2, half, 4, 0}, {3, 2, half, 4, most, 1, 1}), pair},
        {"times_bounce", Times({4, 4, 3000, 0, 9, most - 1, 5, 4, 0}, {2, 3, 0u - 1500, 6, 6000}), pair},
        {"times_run_out", Times({1, 2, 3000}, {1, 1, 5}), "E/ GetJumpSampleIndex [796]:  Jump index cannot be "},
        {"sync_sample_past_the_end", PairWith("stss", {2, 1, 96}), "E/ GetNextSyncUnit [1023]"},
        {"sync_samples_out_of_order", PairWith("stss", {4, 7, 1, 0, 4}), "D/ GetSyncSampleIndex [874]"},
        {"sync_counts_without_entries", PairWith("stss", {most}), "W/ GetNextSyncUnit [993]"},
        {"no_sync_samples", Pair({{"stss", none}}), "E/ GetJumpSampleIndex [763]:  Cannot start \n", 15},
        // Players that misbehave, and calls that nobody expects.
        {"short_reads", Pair(), refused, kAny, Script("01001F00 000010")},
        {"late_reads", Pair(), "D/ FileStreamingThread [152]: INFO - BUFFERING??\n", kAny, Script("02001F00 000010")},
        {"over_counting", Pair(), pair, kAny, Script("03031F00 000010")},
        {"file_refused", One(), "E/ Open [209]:  Open file failed: a.mp4 \n", kAny, Script("000000F0 000010")},
        {"size_told_late", Pair(), "D/ Read [269]: RAW READ:  Size: ", kAny, Script("00000011 000010")},
        {"size_shrinks", Pair(), "Called", kAny, Script("00000004 000010")},
        {"small_heap", Pair(), "E/ FileStreamingThread [92]", kAny, Script("00000000 000410")},
        {"refused_memory", PairWith("stss", Numbers(300, 1)), pair, kAny, Script("00000000 010010")},
        {"other_path", One(), "D/ OpenCheck [463]: URI file extension OK\n", kAny, Script("00000000 000012")},
        {"path_of_dash", One(), "E/ OpenCheck [436]: URI Invalid (DASH", kAny, Script("00000000 000013")},
        {"path_of_3d", Pair(), "D/ OpenCheck [410]: URI file extension OK [ 3D ]\n", kAny, Script("00000000 000011")},
        {"handles_in_turn", Pair(), pair, kAny, Calls("00 01 13 23 06 02 00 01 13 05 E5 0A E2 F5 02 00 00 01")},
        {"without_handle_or_record", One(), "E/ GetNextUnitData [1158]", kAny, Calls(kStray)},
        {"no_track_enabled", Pair(), "E/ JumpPTS [815]", kAny, Calls("00 01 05 07 08 3905 03 93")},
        // Parameter sets that end early or state what cannot be.
        {"sps_of_all_parts", whole, "W/ ExtractSPSInformation [282]"},
        {"sps_id_cut", First(whole, 12), sps + "118]: Problem parsing SPS id \n"},
        {"sps_chroma_7", Record({.chromaFormat = 7}), sps + "128]: Problem parsing Chroma format id \n"},
        {"sps_luma_depth_cut", Join({deep, {0xA0, 0}}), sps + "137]"},
        {"sps_chroma_depth_cut", Join({deep, {0xA8, 0}}), sps + "142]"},
        {"sps_frame_num_of_33_bits", Record({.log2MaxFrameNum = 67}), sps + "160]: Problem in ReadExpGolombCode \n"},
        {"sps_poc_3", Record({.pocType = 3}), sps + "168]: Problem parsing POC \n"},
        {"sps_poc_lsb_cut", First(Record({.profile = 66, .log2MaxFrameNum = 10, .pocType = 0}), 13), sps + "174]"},
        {"sps_poc_offset_cut", First(Record({.profile = 66, .pocType = 1}), 13), sps + "184]"},
        {"sps_poc_field_cut", First(Record({.profile = 66, .log2MaxFrameNum = 6, .pocType = 1}), 14), sps + "189]"},
        {"sps_cycle_of_600", Record({.pocType = 1, .pocCycle = Numbers(600, 1)}), sps + "194]"},
        {"sps_cycle_of_510", Record({.pocType = 1, .pocCycle = Numbers(510, 1)}), "[259]"},
        {"sps_cycle_offset_above", Record({.pocType = 1, .pocCycle = {1, 1000}}), sps + "201]: Problem parsing Poc"},
        {"sps_31_references", Record({.refs = 31}), sps + "209]: Problem parsing Max ref frames \n"},
        {"sps_width_above", Record({.width = 4097}), sps + "216]: Problem in ReadExpGolombCode \n"},
        {"sps_height_above", Record({.height = 4097}), sps + "222]: Problem in ReadExpGolombCode \n"},
        {"sps_cropping_above", Record({.crop = {0, 0, 0, 5000}}), sps + "243]: Problem parsing Cropping"},
        {"sps_4095_macroblocks", Record({.width = 2048, .height = 2048}), "[270]"},
        {"sps_buffering_9", Record({.buffering = 9}), "D/ ExtractSPSInformation [277]"},
        {"sps_aspect_0", Record({.aspect = 0}), "D/ ReadVUI_Parameters [332]"},
        {"sps_aspect_17", Record({.aspect = 17}), "E/ ReadVUI_Parameters [372]:  Reserved Aspect Ratio found"},
        {"sps_no_aspect", Record({.overscan = true}), "W/ ReadVUI_Parameters [379]:  No Aspect ratio information"},
        {"sps_hrd_cut", First(whole, 40), "E/ ReadVUI_Parameters [440]:  Error in ReadHRD_Parameters() \n"},
        {"sps_refused_in_a_file", Avc(Record({.refs = 31})), unread, 3},
        {"sps_type_0_in_a_file", Avc(Record({.nalType = 0})), unread, 3},
    };
}

TEST(Seeds, AreTheGenerators) {
    std::map<std::string, Bytes> made, there;
    for (const Seed& seed : Seeds())
        made[seed.name] = seed.Input();
    for (const auto& entry : std::filesystem::directory_iterator(KIVMP4_SEEDS)) {
        std::ifstream stream(entry.path(), std::ios::binary);
        there[entry.path().filename()] = Bytes(std::istreambuf_iterator<char>(stream), {});
    }
    EXPECT_TRUE(made == there) << "empty the folder and run: seed_tests --write fuzz/seeds";
}

TEST(Seeds, ReachWhatTheyAreMadeFor) {
    for (const Seed& seed : Seeds()) {
        SCOPED_TRACE(seed.name);
        const Bytes input = seed.Input();
        EXPECT_LE(input.size(), 4096u);  // what scripts/fuzz lets an input be
        LogCapture log;
        if (seed.IsRecord()) {
            H264SpsInfo sps = {};
            (void)ExtractSPSInformation({input.data(), input.size()}, sps, 4);
        } else {
            LLVMFuzzerTestOneInput(input.data(), input.size());
        }
        EXPECT_TRUE(log.Has(seed.reaches)) << log.Text();
        if (seed.units == kAny)
            continue;
        Session session(seed.file);
        EXPECT_EQ(session.Start(), seed.units != kRefused);
        EXPECT_EQ(session.Deliver().size(), static_cast<size_t>(std::max(seed.units, 0)));
    }
}

}  // namespace
}  // namespace kivmp4::test

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (argc != 3 || std::string_view(argv[1]) != "--write")
        return RUN_ALL_TESTS();
    for (const auto& seed : kivmp4::test::Seeds()) {
        const auto input = seed.Input();
        std::ofstream stream(std::filesystem::path(argv[2]) / seed.name, std::ios::binary);
        stream.write(reinterpret_cast<const char*>(input.data()), static_cast<std::streamsize>(input.size()));
    }
}
