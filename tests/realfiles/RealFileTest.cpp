// Whole clips against ffmpeg and ffprobe: bytes, order, times, key frames, navigation and seeks.
#include "realfiles/Clips.h"
#include "support/Session.h"

#include <set>

namespace kivmp4::test {
namespace {

auto FirstPicture(const std::vector<Unit>& units) {
    return std::find_if(units.begin(), units.end(), [](const Unit& unit) { return unit.isVideo; });
}

class RealFile : public testing::TestWithParam<Clip> {};
INSTANTIATE_TEST_SUITE_P(Clips, RealFile, testing::ValuesIn(kClips), [](const auto& clip) {
    return std::string(clip.param.name).substr(0, std::string(clip.param.name).find('.'));
});

// The checksums of the decoded pictures of each mapped stream.
using Pictures = std::vector<std::vector<std::string>>;
Pictures Decode(const std::string& inputs) {
    std::istringstream lines = Shell(std::string(FFMPEG) + " -nostdin -v error " + inputs + " -fps_mode passthrough -f framemd5 -");
    Pictures pictures;
    for (std::string line; std::getline(lines, line);) {
        if (line[0] == '#')
            continue;
        const size_t stream = std::stoul(line);
        pictures.resize(std::max(pictures.size(), stream + 1));
        pictures[stream].push_back(line.substr(line.rfind(' ')));
    }
    return pictures;
}

Bytes BytesOf(const std::vector<Unit>& units, uint32_t track) {
    Put bytes;
    for (const Unit& unit : units)
        unit.track == track ? bytes.Raw(unit.bytes) : bytes;
    return bytes;
}

TEST_P(RealFile, ComesOutWhole) {
    const Clip& clip = GetParam();
    const Media& media = MediaOf(clip);
    const std::string kinds = clip.streams;
    Session session(media.bytes);
    session.path = media.path;
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(session.tracks, kinds.size() - static_cast<size_t>(std::count(kinds.begin(), kinds.end(), '-')));
    const std::vector<Unit> units = session.Deliver();
    EXPECT_EQ(session.result, 1);

    std::map<std::pair<int64_t, uint32_t>, std::pair<const Stream*, const Packet*>> inFileOrder;
    for (const Stream& stream : media.streams) {
        for (const Packet& packet : stream.packets)
            inFileOrder[{packet.position, stream.track}] = {&stream, &packet};
    }
    ASSERT_EQ(units.size(), inFileOrder.size());
    auto unit = units.begin();
    for (const auto& [place, expected] : inFileOrder) {
        SCOPED_TRACE(place.first);
        const auto& [stream, packet] = expected;
        const int64_t dts = Ticks(packet->dts, stream->timescale) + stream->delay;
        ASSERT_EQ(unit->track, stream->track);
        EXPECT_EQ(unit->isVideo, stream->kind != 'a');
        EXPECT_EQ(unit->dts, dts);
        EXPECT_EQ(unit->pts, dts + Ticks(packet->pts - packet->dts, stream->timescale));
        EXPECT_EQ(unit->duration, Ticks(packet->duration, stream->timescale));
        EXPECT_EQ(unit->isSync != 0, packet->isKey);
        const uint8_t* content = media.bytes.data() + packet->position;
        EXPECT_TRUE(stream->kind != 'a' || unit->bytes == Bytes(content, content + packet->size));
        ++unit;
    }
    std::string inputs = "-ignore_editlist 1 -i " + media.path, maps;
    size_t videos = 0;
    for (; videos < media.streams.size() && media.streams[videos].kind != 'a'; videos++) {
        const std::string format = media.streams[videos].kind == 'h' ? " -f h264 -i " : " -f m4v -i ";
        inputs += format + SaveFile(std::to_string(videos), BytesOf(units, media.streams[videos].track));
        maps = " -map 0:v:" + std::to_string(videos) + maps + " -map " + std::to_string(videos + 1);
    }
    if (videos > 0) {  // the file's streams, the last one first, then what came out
        const Pictures pictures = Decode(inputs + maps);
        ASSERT_EQ(pictures.size(), 2 * videos);
        for (size_t i = 0; i < videos; i++) {
            EXPECT_EQ(pictures[i].size(), media.streams[0].packets.size());
            EXPECT_EQ(pictures[i], pictures[2 * videos - 1 - i]);
        }
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

// Winding and seeks reach every key frame, and what follows it decodes to the clip's pictures.
TEST_P(RealFile, IsEnteredAtEveryKeyFrame) {
    const Media& media = MediaOf(GetParam());
    const Stream& video = media.streams[0];
    const auto isKey = [](const Packet& packet) { return packet.isKey; };
    if (video.kind != 'h' || std::all_of(video.packets.begin(), video.packets.end(), isKey))
        return;  // no video, or no table of key frames
    Session session(media.bytes);
    ASSERT_TRUE(session.Start());
    for (size_t i = 1; i < media.streams.size(); i++)  // another video track would lead
        session.Enable(media.streams[i].track, media.streams[i].kind == 'a');
    const std::vector<Unit> whole = session.Deliver();
    const std::string all = SaveFile("all", BytesOf(whole, 0));
    const auto start = FirstPicture(whole);
    KivMp4Rewind(session.demux);
    std::vector<int64_t> forward = {start->dts}, backward, keys;
    while (KivMp4GetNextSyncUnit(session.demux, &session.unit) == 0)
        forward.push_back(session.unit.dts);
    while (KivMp4GetPrevSyncUnit(session.demux, &session.unit) == 0 && (backward.empty() || session.unit.dts != backward.back()))
        backward.push_back(session.unit.dts);
    for (size_t i = 0; i < video.packets.size(); i++) {
        const Packet& packet = video.packets[i];
        if (!packet.isKey)
            continue;
        keys.push_back(Ticks(packet.dts, video.timescale) + video.delay);
        KivMp4Rewind(session.demux);  // at the end of the video no seek starts
        ASSERT_EQ(KivMp4JumpPTS(session.demux, packet.pts * 90000 / video.timescale), 0);
        const std::vector<Unit> rest = session.Deliver();
        EXPECT_EQ(FirstPicture(rest)->dts, keys.back());
        // Behind the first picture, which brings the parameter sets.
        const std::string tail = SaveFile("tail", Join({start->bytes, BytesOf(rest, 0)}));
        const Pictures pictures = Decode("-f h264 -i " + all + " -f h264 -i " + tail + " -map 0 -map 1");
        std::vector<std::string> expected(pictures[0].begin() + static_cast<std::ptrdiff_t>(i), pictures[0].end());
        expected.insert(expected.begin(), pictures[0][0]);
        EXPECT_EQ(pictures[1], expected);
    }
    EXPECT_EQ(forward, keys);
    std::reverse(keys.begin(), keys.end());
    if (keys.size() > 1)
        keys.erase(keys.begin());  // where winding back began
    EXPECT_EQ(backward, keys);
}

}  // namespace
}  // namespace kivmp4::test
