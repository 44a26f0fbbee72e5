// Whole clips against ffmpeg and ffprobe: bytes, order, times, key frames, navigation and seeks.
#include "realfiles/Clips.h"
#include "support/Session.h"

#include <set>

namespace kivmp4::test {
namespace {

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

// A file's first described stream leads; where all stand is counted by decode order, -1 at the end.
class RealFileNavigation : public testing::Test {
protected:
    void Open(const Media& opened) {
        media = &opened;
        keys.clear();
        for (size_t i = 0; i < Leader().packets.size(); i++) {
            if (Leader().packets[i].isKey)
                keys.push_back(static_cast<int64_t>(i));
        }
        session = std::make_unique<Session>(opened.bytes);
        ASSERT_TRUE(session->Start());
    }
    const Stream& Leader() const { return media->streams[0]; }
    void EnableOthers(bool on) {
        for (size_t i = 1; i < media->streams.size(); i++)
            session->Enable(media->streams[i].track, on);
    }
    // Delivers until every stream has shown its next unit.
    std::vector<int64_t> Stand() {
        std::vector<int64_t> stand(media->streams.size(), -1);
        while (std::count(stand.begin(), stand.end(), -1) > 0 && KivMp4GetNextUnit(session->demux, &session->unit) == 0) {
            for (size_t s = 0; s < stand.size(); s++) {
                const Stream& stream = media->streams[s];
                for (size_t i = 0; stream.track == session->unit.trackIndex && stand[s] < 0; i++) {
                    if (Ticks(stream.packets.at(i).dts, stream.timescale) + stream.delay == session->unit.dts)
                        stand[s] = static_cast<int64_t>(i);
                }
            }
        }
        return stand;
    }
    int64_t PresentedAt(int64_t sample) const {
        const Packet& packet = Leader().packets[static_cast<size_t>(sample)];
        return packet.dts * 90000 / Leader().timescale + (packet.pts - packet.dts) * 90000 / Leader().timescale;
    }
    // The leader's sample, and those of the others that cover its time; who ends before it stays at the start.
    std::vector<int64_t> AllAt(int64_t sample, int64_t time) const {
        std::vector<int64_t> stand = {sample};
        for (size_t s = 1; s < media->streams.size(); s++) {
            const Stream& stream = media->streams[s];
            const Packet& last = stream.packets.back();
            const auto units = static_cast<int64_t>(static_cast<float>(time) / (90000.0f / static_cast<float>(stream.timescale)));
            const auto later = std::find_if(stream.packets.begin() + 1, stream.packets.end(), [&](const Packet& p) { return p.dts > units; });
            stand.push_back(units > last.dts + last.duration ? 0 : later - stream.packets.begin() - 1);
        }
        return stand;
    }

    const Media* media = nullptr;
    std::vector<int64_t> keys;
    std::unique_ptr<Session> session;
};

TEST_F(RealFileNavigation, StepsToEveryKeyFrame) {
    for (const Clip& clip : kClips) {
        if (std::string("baseline.mp4 reordered.mp4 faststart.mp4 visual.mp4 onekey.mov").find(clip.name) == std::string::npos)
            continue;
        Open(MediaOf(clip));
        for (size_t number = 0; number < 2 * Leader().packets.size(); number++) {
            const bool next = number % 2;
            const auto from = static_cast<int64_t>(number / 2);
            SCOPED_TRACE(std::string(clip.name) + (next ? ": next from " : ": back from ") + std::to_string(from));
            const auto later = std::upper_bound(keys.begin(), keys.end(), from);
            const auto here = std::lower_bound(keys.begin(), keys.end(), from);
            KivMp4Rewind(session->demux);
            EnableOthers(false);  // the sound stays behind, then takes part again
            ASSERT_EQ(session->Deliver(static_cast<size_t>(from)).size(), static_cast<size_t>(from));
            EnableOthers(true);
            const bool none = next && later == keys.end();
            const int64_t target = none ? from : next ? *later : here == keys.end() || here == keys.begin() ? keys[0] : *(here - 1);
            EXPECT_EQ((next ? KivMp4GetNextSyncUnit : KivMp4GetPrevSyncUnit)(session->demux, &session->unit), none ? 1 : 0);
            EXPECT_EQ(Stand(), AllAt(target, none ? 0 : PresentedAt(target)));
        }
    }
}

TEST_F(RealFileNavigation, SeeksLikeAnIndependentSearch) {
    for (const Clip& clip : kClips) {
        if (std::string("allkeys.mp4 main.m4v large.mp4 many.mp4").find(clip.name) != std::string::npos)
            continue;
        Open(MediaOf(clip));
        const auto count = static_cast<int64_t>(Leader().packets.size());
        std::set<int64_t> decoded;
        for (int64_t time = 0, number = 0; time < 120000; time += 1991, number++) {
            SCOPED_TRACE(std::string(clip.name) + " at " + std::to_string(time));
            int64_t target = time < Leader().packets[1].dts * 90000 / Leader().timescale ? 0 : -1;
            for (int64_t k = 1; k < count && target < 0; k++) {
                if (PresentedAt(k - 1) <= time && time < PresentedAt(k))
                    target = k - 1;
            }
            const auto later = std::upper_bound(keys.begin(), keys.end(), std::max<int64_t>(target, 0));
            if (target > 0 && Leader().kind != 'a' && later != keys.end())
                target = *later - target <= target - *(later - 1) ? *later : *(later - 1);
            KivMp4Rewind(session->demux);
            EnableOthers(number % 2 == 0);  // moves disabled or not
            EXPECT_EQ(KivMp4JumpPTS(session->demux, time), target < 0 ? -2 : 0);
            EnableOthers(true);
            const std::vector<int64_t> expected = target > 0 ? AllAt(target, PresentedAt(target) + Leader().delay) : AllAt(std::max<int64_t>(target, 0), 0);
            EXPECT_EQ(Stand(), expected);
            if (Leader().kind != 'h' || target <= 0 || !Leader().packets[static_cast<size_t>(target)].isKey ||
                !decoded.insert(target).second)
                continue;
            // What follows the key frame decodes to the clip's pictures, behind a first one that brings the parameter sets.
            KivMp4Rewind(session->demux);
            const std::vector<Unit> whole = session->Deliver();
            KivMp4Rewind(session->demux);
            EXPECT_EQ(KivMp4JumpPTS(session->demux, time), 0);
            const Bytes all = BytesOf(whole, Leader().track), rest = BytesOf(session->Deliver(), Leader().track);
            const auto first = std::find_if(whole.begin(), whole.end(), [](const Unit& unit) { return unit.isVideo; });
            const std::string files = SaveFile("seek", Join({first->bytes, rest}));
            const Pictures pictures = Decode("-f h264 -i " + SaveFile("all", all) + " -f h264 -i " + files + " -map 0 -map 1");
            std::vector<std::string> tail(pictures[0].begin() + static_cast<std::ptrdiff_t>(target), pictures[0].end());
            tail.insert(tail.begin(), pictures[0][0]);
            EXPECT_EQ(pictures[1], tail);
        }
    }
}

}  // namespace
}  // namespace kivmp4::test
