// Creation: file names, log levels, null arguments, small heaps and a second handle.
#include "support/Session.h"

namespace kivmp4::test {
namespace {

Bytes BaseFile() {
    Movie movie{.tracks = {VideoTrack(), AudioTrack()}};
    movie.tracks[0].sync = {1, 3};
    return Mp4Builder::Build(movie);
}

TEST(Entry, ChecksTheExtension) {
    const std::string dash = "E/ OpenCheck [436]: URI Invalid (DASH Streaming not available)\n";
    const std::string smooth = "E/ OpenCheck [458]: URI Invalid (Smooth Streaming not available)\n";
    const std::string known = "D/ OpenCheck [413]: URI file extension OK\n", other = "D/ OpenCheck [463]: URI file extension OK\n";
    const std::string is3D = "D/ OpenCheck [410]: URI file extension OK [ 3D ]\n";
    struct Case { const char* path; bool accepted; const std::string& line; };
    const Case cases[] = {
        {"movie.mp4", true, known},     {"clip.m4v", true, known},   {"song.m4a", true, known},       {"film.mov", true, known},
        {"film.m3d", true, is3D},       {"a.mp4v", true, known},     {"dir.mov/file", true, known},   {"file.avi", true, other},
        {"nodot", true, other},         {"", true, other},           {".", true, other},              {"a.m", true, other},
        {"%s%n%d.mp4", true, known},    {"FILM.MP4", true, other},   {"stream.MPD", true, other},     {"a.mpd.mp4", true, known},
        {"stream.mpd", false, dash},    {"stream.ism", false, smooth}, {"stream.mpd4", false, dash},  {"a.mp4.ism/Manifest", false, smooth},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        LogCapture log;
        Session session(BaseFile());
        session.path = c.path;
        session.logLevel = 4;
        EXPECT_EQ(session.Create(), c.accepted);
        EXPECT_EQ(log.Text().rfind(c.line, 0), 0u) << log.Text();  // the reading thread may log behind it
        EXPECT_TRUE(c.accepted || log.Text() == c.line) << log.Text();
        EXPECT_EQ(session.file.Opens(), c.accepted ? 1 : 0);
    }
}

TEST(Entry, PrintsWhatTheLevelAdmits) {
    struct Case { int32_t level; bool error, warning, debug, info; };
    const Case cases[] = {{-1, 0, 0, 0, 0}, {0, 0, 0, 0, 0}, {1, 1, 0, 0, 0}, {2, 1, 1, 0, 0},
                          {3, 0, 0, 0, 1},  {4, 1, 1, 1, 1}, {5, 0, 0, 0, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.level);
        LogCapture log;
        Session session(BaseFile());
        session.logLevel = c.level;
        ASSERT_EQ(session.Open(), 0);
        uint8_t byte = 0;
        EXPECT_EQ(KivMp4GetNextUnitData(session.demux, &byte), -1);
        EXPECT_EQ(KivMp4SetAvailableBW(session.demux, 7), -1);
        EXPECT_EQ(KivMp4GetAvailableBW(session.demux), -1);
        EXPECT_EQ(log.Has("E/ GetNextUnitData [1158]:  Not an active AU\n"), c.error);
        EXPECT_EQ(log.Has("W/ SetAvailableBW [1270]:  Cannot set Bandwidth \n"), c.warning);
        EXPECT_EQ(log.Has("W/ GetAvailableBW [1294]:  Cannot set Bandwidth\n"), c.warning);
        EXPECT_EQ(log.Has("D/ Movie [315]:  Num of valid tracks: 2 \n"), c.debug);
        EXPECT_EQ(log.Has("\tPic WxH:  176 x 144 \n\tFrame Cropping needed:\t N  \n"), c.info);
        EXPECT_EQ(log.Text().empty(), !c.error && !c.info) << log.Text();
    }
}

TEST(Entry, LeavesNothingWhenTheFileDoesNotOpen) {
    Session session(BaseFile());
    session.file.refuseOpen = true;
    session.logLevel = 1;
    LogCapture log;
    EXPECT_FALSE(session.Create());
    EXPECT_EQ(log.Text(), "E/ Open [209]:  Open file failed: clip.mp4 \n");
    EXPECT_EQ(session.file.Closes(), 0);
}

// Every answer to a null handle, record or out pointer; `demux` is null, stale, or open with a track enabled.
void RefusesNulls(Mp4Demux* demux, bool open) {
    AccessUnit unit = {};
    CodecInfo info = {};
    uint32_t tracks = 0;
    int64_t duration = 0;
    uint8_t byte = 0;
    EXPECT_EQ(KivMp4Open(demux, nullptr, &duration), -1);
    EXPECT_EQ(KivMp4Open(demux, &tracks, nullptr), -1);
    EXPECT_EQ(KivMp4GetTrackInfo(demux, 0, nullptr), -1);
    EXPECT_EQ(KivMp4GetNextUnit(demux, nullptr), -1);
    EXPECT_EQ(KivMp4GetPrevSyncUnit(demux, nullptr), -1);
    EXPECT_EQ(KivMp4GetNextSyncUnit(demux, nullptr), -1);
    EXPECT_EQ(KivMp4GetNextUnitData(demux, nullptr), -1);
    EXPECT_EQ(KivMp4InitUnit(demux, nullptr), -1);
    if (open)
        return;
    EXPECT_EQ(KivMp4Open(demux, &tracks, &duration), -1);
    EXPECT_EQ(KivMp4Destroy(demux), -1);
    EXPECT_EQ(KivMp4EnableTrack(demux, 0, 1), -1);
    EXPECT_EQ(KivMp4GetTrackInfo(demux, 0, &info), -1);
    EXPECT_EQ(KivMp4GetNextUnit(demux, &unit), -1);
    EXPECT_EQ(KivMp4GetNextSyncUnit(demux, &unit), -1);
    EXPECT_EQ(KivMp4GetPrevSyncUnit(demux, &unit), -1);
    EXPECT_EQ(KivMp4JumpPTS(demux, 0), -1);
    EXPECT_EQ(KivMp4GetNextUnitData(demux, &byte), -1);
    EXPECT_EQ(KivMp4Rewind(demux), -1);
    EXPECT_EQ(KivMp4SetAvailableBW(demux), -1);
    KivMp4FlushFileReader(demux);
    KivMp4ResumeFileReader(demux);
}

TEST(Entry, RefusesNullArguments) {
    Session session(BaseFile());
    Bytes heap(1 << 20);
    const auto create = [&](const char* path, FileInterface* file, ClientAllocator* memory, void* block) {
        return KivMp4Create(path, file, memory, block, heap.size(), 0, 0);
    };
    EXPECT_EQ(create(nullptr, session.file.Interface(), session.memory.Interface(), heap.data()), nullptr);
    EXPECT_EQ(create("a.mp4", nullptr, session.memory.Interface(), heap.data()), nullptr);
    EXPECT_EQ(create("a.mp4", session.file.Interface(), nullptr, heap.data()), nullptr);
    EXPECT_EQ(create("a.mp4", session.file.Interface(), session.memory.Interface(), nullptr), nullptr);
    RefusesNulls(nullptr, false);
    ASSERT_TRUE(session.Start());
    RefusesNulls(session.demux, true);
    EXPECT_EQ(session.Deliver().size(), 7u);  // nothing has moved
}

TEST(Entry, CopesWithAnyHeapBlock) {
    for (size_t misalign = 0; misalign < 8; misalign++) {
        for (size_t size : {0, 1, 7, 64, 4096, 100000}) {  // none holds the read-ahead buffer
            Session session(BaseFile(), size + misalign, misalign);
            EXPECT_TRUE(!session.Create() || size > 64) << size << " bytes, misaligned by " << misalign;
            EXPECT_EQ(session.Open(), -1) << size;
        }
        Session session(BaseFile(), 1 << 20, misalign);
        ASSERT_TRUE(session.Start()) << "misaligned by " << misalign;
        EXPECT_EQ(session.Deliver().size(), 7u);
    }
}

TEST(Entry, ClosesTheFormerHandle) {
    Session first(BaseFile()), second(BaseFile());
    ASSERT_TRUE(first.Start());
    EXPECT_EQ(first.Deliver(2).size(), 2u);
    ASSERT_TRUE(second.Start());
    first.CheckLeftovers();
    RefusesNulls(first.demux, false);
    first.demux = nullptr;
    EXPECT_EQ(second.Deliver().size(), 7u);
    EXPECT_EQ(KivMp4JumpPTS(second.demux, 0), -2);  // the video stands at its end
}

}  // namespace
}  // namespace kivmp4::test
