// kivmp4 seek: jumps to each time and tells where each track lands, and why there.
#include <cmath>
#include <limits>
#include <map>

#include "commands/Commands.h"
#include "inspect/Facts.h"
#include "play/Player.h"
#include "print/Json.h"
#include "print/Text.h"

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

// The last video track leads, without one the first track.
uint32_t Leader(const Player& player, const std::vector<uint32_t>& tracks) {
    uint32_t leader = tracks.front();
    for (const uint32_t track : tracks)
        leader = player.IsVideo(track) ? track : leader;
    return leader;
}

int64_t Delay(const Source& source, uint32_t index) {
    const inspect::Track* track = source.Track(index);
    return track ? inspect::AppliedDelay(source.Movie(), *track) : 0;
}

/// What the tables tell of the neighbourhood of a time. Ticks.
struct Neighbours {
    std::optional<inspect::Sample> landed;  // the sample that was delivered
    std::optional<inspect::Sample> due;     // the one that is shown at the target
    std::optional<int64_t> keyBefore, keyAfter;
};

Neighbours Look(const Source& source, uint32_t index, const AccessUnit& unit, int64_t target) {
    Neighbours found;
    const inspect::Track* track = source.Track(index);
    if (!track)
        return found;
    const int64_t delay = Delay(source, index);
    inspect::SampleWalk walk(*track);
    double nearest = std::numeric_limits<double>::max();
    int64_t shown = INT64_MIN;
    for (inspect::Sample sample; walk.Next(sample);) {
        const int64_t pts = inspect::ToTicks(sample.cts, track->timescale) + delay;
        // The library's times are of single precision, so the nearest one is meant.
        const int64_t dts = inspect::ToTicks(sample.dts, track->timescale) + delay;
        const double distance = std::abs(static_cast<double>(dts) - static_cast<double>(unit.dts));
        if (distance < nearest) {
            nearest = distance;
            found.landed = sample;
        }
        if (pts <= target && pts > shown) {
            shown = pts;
            found.due = sample;
        }
        if (sample.key && pts <= target)
            found.keyBefore = pts;
        else if (sample.key && !found.keyAfter)
            found.keyAfter = pts;
    }
    return found;
}

std::string Why(const AccessUnit& unit, int64_t target, const Neighbours& found) {
    if (!unit.isVideo)
        return "";
    if (!unit.isSync)
        return found.keyBefore ? "no key frame: the last one is at " + FormatTime(*found.keyBefore) : "no key frame";
    if (unit.pts == target)
        return "a key frame at the target";
    const bool after = unit.pts > target;
    const auto& other = after ? found.keyBefore : found.keyAfter;
    const std::string side = after ? "after" : "before";
    const std::string otherSide = after ? "before" : "after";
    return "nearest key frame, " + side + " the target" +
           (other ? "; the one " + otherSide + " is at " + FormatTime(*other) : "; there is none " + otherSide);
}

// Why a jump has nowhere to go.
std::string WhyNowhere(const Source& source, uint32_t leader, int64_t target) {
    const inspect::Track* track = source.Track(leader);
    if (!track)
        return "the leading track cannot be looked into";
    if (track->MediaKind() == inspect::Kind::Video && !track->stss.count)
        return "the file has no table of key frames: every frame is one, and the library does not jump then";
    const inspect::Facts facts = inspect::FactsOf(source.File(), *track);
    const int64_t end = facts.start + facts.duration + Delay(source, leader);
    if (target < facts.start)
        return "the target lies before the first unit at " + FormatTime(facts.start);
    return fmt::format("the target lies at or past the last unit{}",
                       target >= end ? "; the track ends at " + FormatTime(end) : "");
}

struct Landing {
    uint32_t track;
    const AccessUnit* unit;  // null: the track is at its end
    Neighbours found;
};

struct Result {
    const TimeArgument& time;
    int64_t target;
    int32_t result;
    uint32_t leader;
    std::vector<Landing> landings = {};
    std::string nowhere = {};

    const AccessUnit* Reference() const {
        for (const Landing& landing : landings) {
            if (landing.track == leader)
                return landing.unit;
        }
        return nullptr;
    }
};

void Print(const Result& result, Output& out) {
    out.Print("target {}  ({} ticks)\n", FormatTime(result.target), result.target);
    if (!result.nowhere.empty())
        out.Print("  nowhere to go: {}\n", result.nowhere);
    for (const Landing& landing : result.landings) {
        if (!landing.unit) {
            out.Print("  #{}  at its end\n", landing.track);
            continue;
        }
        const AccessUnit& unit = *landing.unit;
        out.Print("  #{} {}", landing.track, unit.isVideo ? "video" : "audio");
        if (landing.found.landed) {
            const inspect::Sample& sample = *landing.found.landed;
            const bool moved = unit.isVideo && landing.found.due && landing.found.due->number != sample.number;
            out.Print("  sample {}", moved ? fmt::format("{} -> {}", landing.found.due->number, sample.number)
                                           : std::to_string(sample.number));
            out.Print("  offset 0x{:x}", sample.offset);
        }
        out.Print("  pts {} ({})  {} s", FormatTime(unit.pts), unit.pts, FormatDifference(unit.pts - result.target));
        const AccessUnit* reference = result.Reference();
        if (!unit.isVideo && reference && reference->isVideo)
            out.Print(", {} s to the video", FormatDifference(unit.pts - reference->pts));
        const std::string why = Why(unit, result.target, landing.found);
        out.Print("{}\n", why.empty() ? "" : "  (" + why + ")");
    }
}

Json ToJson(const Result& result) {
    Json json = {{"time", result.time.text}, {"target", result.target},    {"target_time", Seconds(result.target)},
                 {"result", result.result},  {"reference", result.leader}, {"tracks", Json::array()}};
    if (!result.nowhere.empty())
        json["reason"] = result.nowhere;
    const AccessUnit* reference = result.Reference();
    for (const Landing& landing : result.landings) {
        Json track = {{"index", landing.track}, {"at_end", landing.unit == nullptr}};
        if (landing.unit) {
            const AccessUnit& unit = *landing.unit;
            if (landing.found.landed)
                track.update({{"sample", landing.found.landed->number}, {"pos", landing.found.landed->offset}});
            if (landing.found.due)
                track["sample_at_target"] = landing.found.due->number;
            track.update({{"pts", unit.pts},
                          {"pts_time", Seconds(unit.pts)},
                          {"key", unit.isSync != 0},
                          {"difference", Seconds(unit.pts - result.target)}});
            if (reference)
                track["to_reference"] = Seconds(unit.pts - reference->pts);
            if (const std::string why = Why(unit, result.target, landing.found); !why.empty())
                track["reason"] = why;
        }
        json["tracks"].push_back(track);
    }
    return json;
}

}  // namespace

ExitCode Seek(const Settings& settings, const SeekArguments& arguments, Output& out) {
    const Source source(arguments.file);
    Player player(source, settings);
    const std::vector<uint32_t> tracks = player.Enable();
    const uint32_t leader = Leader(player, tracks);
    AccessUnit unit;
    KivMp4InitUnit(player.Handle(), &unit);
    Json document = {{"schema", "kivmp4.seek/1"}};
    AddFile(document, source.Path());
    document["seeks"] = Json::array();
    for (const TimeArgument& time : arguments.times) {
        Result result{time, time.At(player.Duration()), 0, leader};
        // A video track at its end would refuse to jump, so each jump starts from the beginning.
        KivMp4Rewind(player.Handle());
        // The library counts without the leading track's delay.
        result.result = KivMp4JumpPTS(player.Handle(), result.target - Delay(source, leader));
        if (result.result != KIVMP4_OK)
            player.RequireTables();
        if (result.result == KIVMP4_NOWHERE)
            result.nowhere = WhyNowhere(source, leader, result.target);
        else if (result.result != KIVMP4_OK)
            throw source.Refuse(kNotUsable, "has no track to seek in");
        const Landings landings = result.nowhere.empty() ? Land(player, tracks, unit) : Landings();
        for (const uint32_t track : result.nowhere.empty() ? tracks : std::vector<uint32_t>()) {
            const auto landed = landings.find(track);
            const bool found = landed != landings.end();
            result.landings.push_back({track, found ? &landed->second : nullptr,
                                       found ? Look(source, track, landed->second, result.target) : Neighbours()});
        }
        if (settings.json)
            document["seeks"].push_back(ToJson(result));
        else
            Print(result, out);
    }
    if (settings.json)
        out.Write(Dump(document));
    return kDone;
}

}  // namespace kivmp4::cli
