// kivmp4 keys: steps through the key frames as a player winds forward or backward.
#include <cinttypes>

#include "Commands.h"
#include "Failure.h"

namespace kivmp4::cli {

namespace {

// Reading ahead would be thrown away at each step, so it rests meanwhile.
class TrickMode {
public:
    explicit TrickMode(Mp4Demux* demux) : handle(demux) { KivMp4FlushFileReader(handle); }
    ~TrickMode() { KivMp4ResumeFileReader(handle); }
    TrickMode(const TrickMode&) = delete;
    TrickMode& operator=(const TrickMode&) = delete;

private:
    Mp4Demux* handle;
};

uint32_t FirstVideoTrack(const Player& player) {
    for (uint32_t index = 0; index < player.TrackCount(); index++) {
        const CodecInfo* info = player.Track(index);
        if (info && info->kind == KIVMP4_KIND_VIDEO)
            return index;
    }
    throw Failure{kNotUsable, player.About("has no video track to step through")};
}

using Step = int32_t (*)(Mp4Demux*, AccessUnit*);

// @return whether there was a key frame to step to
bool Take(Player& player, Step step, AccessUnit& unit) {
    const int32_t result = step(player.Handle(), &unit);
    if (result < 0)
        player.Stopped(unit);
    return result == KIVMP4_OK;
}

void PrintKey(Output& out, uint64_t number, const AccessUnit& unit, const std::string& interval) {
    out.Print("%8" PRIu64 " %12" PRId64 " %14s %9s %9" PRId32 "\n", number, unit.pts, FormatTime(unit.pts).c_str(),
              interval.c_str(), unit.size);
}

void Forward(Player& player, AccessUnit& unit, Output& out) {
    std::string interval = "-";
    for (uint64_t number = 1;; number++) {
        const int64_t before = unit.pts;
        PrintKey(out, number, unit, interval);
        if (!Take(player, KivMp4GetNextSyncUnit, unit))
            return;
        interval = FormatDifference(unit.pts - before);
    }
}

void Backward(Player& player, AccessUnit& unit, Output& out) {
    uint64_t number = 1;
    while (Take(player, KivMp4GetNextSyncUnit, unit))
        number++;
    std::string interval = "-";
    // The first key frame would be delivered again and again, so the count ends the way back.
    for (;; number--) {
        const int64_t before = unit.pts;
        PrintKey(out, number, unit, interval);
        if (number == 1 || !Take(player, KivMp4GetPrevSyncUnit, unit))
            return;
        interval = FormatDifference(unit.pts - before);
    }
}

}  // namespace

void Keys(Player& player, const Options& options, Output& out) {
    player.SetEnabled(FirstVideoTrack(player), true);
    AccessUnit unit;
    KivMp4InitUnit(player.Handle(), &unit);
    const TrickMode trickMode(player.Handle());
    out.Print("# number          pts           time  interval      size\n");
    // From the start of the track a step back answers the first key frame, wherever it lies.
    if (!Take(player, KivMp4GetPrevSyncUnit, unit)) {
        player.RequireTables();
        out.Print("# the file has no table of key frames: every frame is one, and there is nothing to step by\n");
        return;
    }
    if (options.backward)
        Backward(player, unit, out);
    else
        Forward(player, unit, out);
}

}  // namespace kivmp4::cli
