// Whole clips against ffmpeg and ffprobe: bytes, order, times, key frames, navigation and seeks.
#include "realfiles/Clips.h"
#include "support/Session.h"

#include <sstream>

namespace kivmp4::test {
namespace {

class RealFile : public testing::TestWithParam<Clip> {};
INSTANTIATE_TEST_SUITE_P(Clips, RealFile, testing::ValuesIn(kClips), [](const auto& clip) {
    return std::string(clip.param.name).substr(0, std::string(clip.param.name).find('.')) + std::to_string(clip.index);
});

struct Expected {
    const Stream* stream;
    const Packet* packet;
};
std::vector<Expected> InFileOrder(const std::vector<Stream>& streams) {
    std::vector<Expected> all;
    for (const Stream& stream : streams) {
        for (const Packet& packet : stream.packets)
            all.push_back({&stream, &packet});
    }
    std::sort(all.begin(), all.end(), [](const Expected& a, const Expected& b) {
        return std::pair(a.packet->position, a.stream->track) < std::pair(b.packet->position, b.stream->track);
    });
    return all;
}

// The checksums of the decoded pictures, one a line.
std::string Pictures(const std::string& input) {
    std::istringstream lines(Shell(std::string(FFMPEG) + " -nostdin -v error " + input + " -fps_mode passthrough -f framemd5 -"));
    std::string sums;
    for (std::string line; std::getline(lines, line);)
        sums += line[0] == '#' ? "" : line.substr(line.rfind(' ')) + "\n";
    return sums;
}

Bytes BytesOf(const std::vector<Unit>& units, uint32_t track) {
    Put bytes;
    for (const Unit& unit : units)
        unit.track == track ? bytes.Raw(unit.bytes) : bytes;
    return bytes;
}

TEST_P(RealFile, ComesOutWhole) {
    const Clip& clip = GetParam();
    const std::string path = PathOf(clip), streams = clip.streams;
    const std::vector<Stream> described = StreamsOf(clip);
    Session session(LoadFile(path));
    session.path = path;
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(session.tracks, streams.size() - static_cast<size_t>(std::count(streams.begin(), streams.end(), '-')));
    const std::vector<Unit> units = session.Deliver();
    EXPECT_EQ(session.result, 1);

    const std::vector<Expected> expected = InFileOrder(described);
    ASSERT_EQ(units.size(), expected.size());
    for (size_t i = 0; i < units.size(); i++) {
        SCOPED_TRACE(i);
        const Stream& stream = *expected[i].stream;
        const Packet& packet = *expected[i].packet;
        const bool video = stream.kind != 'a';
        const int64_t delay = video ? clip.videoDelay : 0, dts = Ticks(packet.dts, stream.timescale) + delay;
        ASSERT_EQ(units[i].track, stream.track);
        EXPECT_EQ(units[i].isVideo, video);
        EXPECT_EQ(units[i].dts, dts);
        EXPECT_EQ(units[i].pts, dts + Ticks(packet.pts - packet.dts, stream.timescale));
        EXPECT_EQ(units[i].duration, Ticks(packet.duration, stream.timescale));
        EXPECT_EQ(units[i].isSync != 0, packet.isKey);
    }
    for (size_t number = 0; number < described.size(); number++) {
        const Stream& stream = described[number];
        const std::string source = "-ignore_editlist 1 -i " + path + " -map 0:" + std::to_string(streams.find(stream.kind, number));
        const Bytes bytes = BytesOf(units, stream.track);
        if (stream.kind == 'a') {
            const std::string packets = Shell(std::string(FFMPEG) + " -nostdin -v error " + source + " -c copy -f data -");
            EXPECT_TRUE(bytes == Bytes(packets.begin(), packets.end())) << source;
            continue;
        }
        SaveFile(TemporaryPath("out.raw"), bytes);
        const std::string pictures = Pictures(source);
        EXPECT_EQ(static_cast<size_t>(std::count(pictures.begin(), pictures.end(), '\n')), stream.packets.size());
        EXPECT_EQ(Pictures((stream.kind == 'h' ? "-f h264 -i " : "-f m4v -i ") + TemporaryPath("out.raw")), pictures);
    }

    KivMp4FlushFileReader(session.demux);  // read raw, the same comes
    for (const bool again : {false, true}) {
        KivMp4Rewind(session.demux);
        const std::vector<Unit> raw = session.Deliver();
        ASSERT_EQ(raw.size(), units.size());
        for (size_t i = 0; i < raw.size(); i++)
            EXPECT_TRUE(raw[i].bytes == units[i].bytes && raw[i].dts == units[i].dts) << again << " " << i;
        KivMp4ResumeFileReader(session.demux);
    }
}

// Where a stream stands by decode order; -1 at its end.
using Stand = std::map<uint32_t, int64_t>;

// Delivers until every described stream has shown its next unit; `described` lead to its number.
Stand StandOf(Session& session, const std::vector<Stream>& described) {
    Stand stand;
    for (const Stream& stream : described)
        stand[stream.track] = -1;
    for (size_t open = described.size(); open > 0;) {
        const std::vector<Unit> unit = session.Deliver(1);
        if (unit.empty())
            break;
        if (stand[unit[0].track] >= 0)
            continue;
        open--;
        for (const Stream& stream : described) {
            for (size_t i = 0; stream.track == unit[0].track && i < stream.packets.size(); i++) {
                if (Ticks(stream.packets[i].dts, stream.timescale) == unit[0].dts)
                    stand[stream.track] = static_cast<int64_t>(i);
            }
        }
    }
    return stand;
}

int64_t Expand(int64_t value, uint32_t timescale) {
    return value * 90000 / timescale;
}
int64_t PresentedAt(const Stream& stream, size_t i) {
    const Packet& packet = stream.packets[i];
    return Expand(packet.dts, stream.timescale) + Expand(packet.pts - packet.dts, stream.timescale);
}
// The sample of a stream without reordering that covers a time; -1 behind its end.
int64_t Covering(const Stream& stream, int64_t ticks) {
    const auto units = static_cast<int64_t>(static_cast<float>(ticks) / (90000.0f / static_cast<float>(stream.timescale)));
    const Packet& last = stream.packets.back();
    int64_t found = units > last.dts + last.duration ? -1 : 0;
    for (size_t i = 0; i < stream.packets.size() && found >= 0 && stream.packets[i].dts <= units; i++)
        found = static_cast<int64_t>(i);
    return found;
}
std::vector<size_t> KeysOf(const Stream& stream) {
    std::vector<size_t> keys;
    for (size_t i = 0; i < stream.packets.size(); i++) {
        if (stream.packets[i].isKey)
            keys.push_back(i);
    }
    return keys;
}

TEST(RealFileNavigation, StepsToEveryKeyFrame) {
    for (const char* name : {"baseline.mp4", "reordered.mp4", "faststart.mp4", "visual.mp4", "onekey.mov"}) {
        const Clip& clip = ClipNamed(name);
        const std::vector<Stream> described = StreamsOf(clip);
        const Stream& video = described[0];
        const std::vector<size_t> keys = KeysOf(video);
        Session session(LoadFile(PathOf(clip)));
        ASSERT_TRUE(session.Start());
        for (size_t from = 0; from < video.packets.size(); from++) {
            for (const bool next : {true, false}) {
                SCOPED_TRACE(std::string(name) + (next ? ": next from " : ": back from ") + std::to_string(from));
                const auto later = std::upper_bound(keys.begin(), keys.end(), from);
                const auto here = std::lower_bound(keys.begin(), keys.end(), from);
                const size_t back = here == keys.end() || here == keys.begin() ? keys[0] : *(here - 1);
                KivMp4Rewind(session.demux);
                for (const bool alone : {true, false}) {  // the sound stays behind, then takes part again
                    for (size_t i = 1; i < described.size(); i++)
                        KivMp4EnableTrack(session.demux, static_cast<int32_t>(described[i].track), !alone);
                    ASSERT_EQ(session.Deliver(alone ? from : 0).size(), alone ? from : 0);
                }
                const int32_t result = (next ? KivMp4GetNextSyncUnit : KivMp4GetPrevSyncUnit)(session.demux, &session.unit);
                ASSERT_EQ(result, next && later == keys.end() ? 1 : 0);
                Stand expected = {{video.track, static_cast<int64_t>(result == 1 ? from : next ? *later : back)}};
                for (size_t i = 1; i < described.size(); i++)
                    expected[described[i].track] = result == 1 ? 0 : Covering(described[i], PresentedAt(video, static_cast<size_t>(expected[video.track])));
                EXPECT_EQ(StandOf(session, described), expected);
            }
        }
    }
}

TEST(RealFileNavigation, SeeksLikeAnIndependentSearch) {
    for (const char* name : {"baseline.mp4", "reordered.mp4", "faststart.mp4", "visual.mp4", "onekey.mov", "mono.m4a", "surround.m4a"}) {
        const Clip& clip = ClipNamed(name);
        const std::vector<Stream> described = StreamsOf(clip);
        const Stream& leader = described[0];
        const std::vector<size_t> keys = KeysOf(leader);
        Session session(LoadFile(PathOf(clip)));
        ASSERT_TRUE(session.Start());
        for (int64_t time = 0, number = 0; time < 200000; time += 991, number++) {
            SCOPED_TRACE(std::string(name) + " at " + std::to_string(time));
            int64_t target = time < Expand(leader.packets[1].dts, leader.timescale) ? 0 : -1;
            for (size_t k = 1; k < leader.packets.size() && target < 0; k++) {
                if (PresentedAt(leader, k - 1) <= time && time < PresentedAt(leader, k))
                    target = static_cast<int64_t>(k) - 1;
            }
            const auto later = std::upper_bound(keys.begin(), keys.end(), static_cast<size_t>(std::max<int64_t>(target, 0)));
            if (target > 0 && leader.kind != 'a' && later != keys.end()) {
                const auto above = static_cast<int64_t>(*later), below = static_cast<int64_t>(*(later - 1));
                target = above - target <= target - below ? above : below;
            }
            KivMp4Rewind(session.demux);
            const auto other = described.size() > 1 ? static_cast<int32_t>(described[1].track) : 1000;
            KivMp4EnableTrack(session.demux, other, number % 2 == 0);  // moves disabled or not
            EXPECT_EQ(KivMp4JumpPTS(session.demux, time), target < 0 ? -2 : 0);
            KivMp4EnableTrack(session.demux, other, 1);
            Stand expected = {{leader.track, std::max<int64_t>(target, 0)}};
            for (size_t i = 1; i < described.size(); i++)
                expected[described[i].track] = target <= 0 ? 0 : Covering(described[i], PresentedAt(leader, static_cast<size_t>(target)));
            EXPECT_EQ(StandOf(session, described), expected);
            if (leader.kind != 'h' || number % 50 != 20 || target < 0 || !leader.packets[static_cast<size_t>(target)].isKey)
                continue;
            // What follows the key frame decodes, once the parameter sets are in front of it.
            EXPECT_EQ(KivMp4JumpPTS(session.demux, time), 0);
            CodecInfo info = {};
            ASSERT_EQ(KivMp4GetTrackInfo(session.demux, static_cast<int32_t>(leader.track), &info), 0);
            const size_t spsSize = static_cast<size_t>(info.config[6] << 8 | info.config[7]), pps = 8 + spsSize + 1;
            const uint8_t* record = info.config;
            const Bytes front = Started({Bytes(record + 8, record + 8 + spsSize), Bytes(record + pps + 2, record + pps + 2 + (record[pps] << 8 | record[pps + 1]))});
            SaveFile(TemporaryPath("seek.h264"), Join({front, BytesOf(session.Deliver(), leader.track)}));
            const std::string pictures = Pictures("-f h264 -i " + TemporaryPath("seek.h264"));
            EXPECT_EQ(std::count(pictures.begin(), pictures.end(), '\n'), static_cast<int64_t>(leader.packets.size()) - target);
        }
    }
}

TEST(RealFileNavigation, AllKeyFramesWithoutATable) {
    Session session(LoadFile(PathOf(ClipNamed("allkeys.mp4"))));
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(KivMp4GetNextSyncUnit(session.demux, &session.unit), 1);
    EXPECT_EQ(KivMp4GetPrevSyncUnit(session.demux, &session.unit), 1);
    EXPECT_EQ(KivMp4JumpPTS(session.demux, 90000), -2);
    EXPECT_EQ(session.Deliver(1).at(0).dts, 0);
}

}  // namespace
}  // namespace kivmp4::test
