// kivmp4 seek: jumps to each time and tells where each track lands.
#include <cinttypes>
#include <map>

#include "Commands.h"
#include "Failure.h"
#include "Text.h"

namespace kivmp4::cli {

namespace {

using Landings = std::map<uint32_t, AccessUnit>;  // by track; payloads are not looked at

// The first unit of each track after the jump, in file order. A track that has shown where it stands is left out, so
// that no track plays through to its end while the others' turn comes.
Landings Land(Player& player, const std::vector<uint32_t>& tracks, AccessUnit& unit) {
    Landings landings;
    while (player.Next(unit)) {
        landings[unit.trackIndex] = unit;
        player.SetEnabled(unit.trackIndex, false);
    }
    for (const uint32_t track : tracks)
        player.SetEnabled(track, true);
    return landings;
}

void PrintLandings(const std::vector<uint32_t>& tracks, const Landings& landings, int64_t target, Output& out) {
    const AccessUnit* video = nullptr;
    for (const auto& [track, unit] : landings)
        video = unit.isVideo ? &unit : video;  // the last one leads
    for (const uint32_t track : tracks) {
        const auto landing = landings.find(track);
        if (landing == landings.end()) {
            out.Print("  track %" PRIu32 ": at its end\n", track);
            continue;
        }
        const AccessUnit& unit = landing->second;
        out.Print("  track %" PRIu32 ": %s, pts %" PRId64 ", %s from the target", track, FormatTime(unit.pts).c_str(),
                  unit.pts, FormatDifference(unit.pts - target).c_str());
        if (video && !unit.isVideo)
            out.Print(", %s from the video", FormatDifference(unit.pts - video->pts).c_str());
        out.Print("%s\n", !unit.isVideo ? "" : unit.isSync ? ", key" : ", not a key frame");
    }
}

}  // namespace

void Seek(Player& player, const Options& options, Output& out) {
    const std::vector<uint32_t> tracks = player.Enable(std::nullopt);
    AccessUnit unit;
    KivMp4InitUnit(player.Handle(), &unit);
    for (const TimeArgument& time : options.times) {
        const int64_t target = time.At(player.Duration());
        out.Print("%s: %s, pts %" PRId64 "\n", Escape(time.text).c_str(), FormatTime(target).c_str(), target);
        // A video track at its end would refuse to jump, so each jump starts from the beginning.
        KivMp4Rewind(player.Handle());
        const int32_t result = KivMp4JumpPTS(player.Handle(), target);
        if (result != 0)
            player.RequireTables();
        if (result == KIVMP4_OK)
            PrintLandings(tracks, Land(player, tracks, unit), target, out);
        else if (result == KIVMP4_NOWHERE)
            out.Print("  nowhere to go: at or behind the last unit, or the file has no table of key frames\n");
        else
            throw Failure{kNotUsable, player.About("has no track to seek in")};
    }
}

}  // namespace kivmp4::cli
