// kivmp4 keys: steps through the key frames as a player winds forward or backward.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "commands/Commands.h"
#include "inspect/Facts.h"
#include "play/Player.h"
#include "play/TrickMode.h"
#include "print/Json.h"

namespace kivmp4::cli {

namespace {

constexpr int64_t kLongForOneKey = 10 * kTicksPerSecond;

/// A key frame as the library delivers it, and what the tables tell of it.
struct Key {
    int64_t pts;
    int32_t size;
    uint64_t number = 0;                       // from 1, in the order of the track
    const inspect::KeyFrame* frame = nullptr;  // null where the command's own reader sees none of this time
};

std::vector<Key> StepForward(Player& player, AccessUnit& unit) {
    std::vector<Key> keys;
    // From the start of the track a step back answers the first key frame, wherever it lies.
    bool found = player.Step(unit, false);
    for (; found; found = player.Step(unit, true))
        keys.push_back({unit.pts, unit.size, keys.size() + 1});
    return keys;
}

std::vector<Key> StepBackward(Player& player, AccessUnit& unit) {
    const std::vector<Key> forward = StepForward(player, unit);
    std::vector<Key> keys;
    // The first key frame would be delivered again and again, so the count ends the way back.
    for (uint64_t number = forward.size(); number > 0; number--) {
        if (number < forward.size() && !player.Step(unit, false))
            break;
        keys.push_back({unit.pts, unit.size, number});
    }
    return keys;
}

// The library's times are of single precision: 24 bits of them are right.
bool IsNear(int64_t a, int64_t b) {
    const auto x = static_cast<double>(a), y = static_cast<double>(b);
    return std::abs(x - y) <= 2 + std::abs(y) / (1 << 22);
}

void AddFrames(std::vector<Key>& keys, const std::vector<inspect::KeyFrame>& frames, const inspect::Track& track,
               int64_t delay) {
    for (Key& key : keys) {
        if (key.number > frames.size())
            continue;
        const inspect::KeyFrame& frame = frames[static_cast<size_t>(key.number - 1)];
        if (IsNear(key.pts, inspect::ToTicks(frame.sample.cts, track.timescale) + delay))
            key.frame = &frame;
    }
}

struct Stats {
    uint64_t count = 0;
    int64_t shortest = 0, longest = 0;  // intervals, ticks; 0 with less than two key frames
    double mean = 0;
    double gopBytes = 0;  // on average
};

Stats StatsOf(const std::vector<Key>& keys) {
    Stats stats;
    stats.count = keys.size();
    uint64_t bytes = 0;
    for (size_t i = 0; i < keys.size(); i++) {
        bytes += keys[i].frame ? keys[i].frame->bytes : 0;
        if (i == 0)
            continue;
        const int64_t interval = std::abs(keys[i].pts - keys[i - 1].pts);
        stats.shortest = i == 1 ? interval : std::min(stats.shortest, interval);
        stats.longest = std::max(stats.longest, interval);
    }
    if (keys.size() > 1)
        stats.mean =
            static_cast<double>(std::abs(keys.back().pts - keys.front().pts)) / static_cast<double>(keys.size() - 1);
    if (!keys.empty())
        stats.gopBytes = static_cast<double>(bytes) / static_cast<double>(keys.size());
    return stats;
}

std::string Interval(const std::vector<Key>& keys, size_t at) {
    return at == 0 ? "-" : FormatDifference(keys[at].pts - keys[at - 1].pts);
}

void PrintText(const std::vector<Key>& keys, Output& out) {
    out.Print("{:>6} {:>8} {:>11} {:>12} {:>9} {:>9} {:>11} {:>9} {:>10}\n", "number", "sample", "pts", "time",
              "interval", "size", "pos", "gop_units", "gop_bytes");
    for (size_t i = 0; i < keys.size(); i++) {
        const Key& key = keys[i];
        out.Print("{:>6} {:>8} {:>11} {:>12} {:>9} {:>9}", key.number,
                  key.frame ? std::to_string(key.frame->sample.number) : "-", key.pts, FormatTime(key.pts),
                  Interval(keys, i), key.size);
        if (key.frame)
            out.Print(" {:>11} {:>9} {:>10}", key.frame->sample.offset, key.frame->units, key.frame->bytes);
        out.Write("\n");
    }
}

void PrintCsv(const std::vector<Key>& keys, Output& out) {
    out.Write("number,sample,pts,pts_time,size,pos,gop_units,gop_bytes\n");
    for (const Key& key : keys) {
        out.Print("{},{},{},{:.6f},{}", key.number, key.frame ? std::to_string(key.frame->sample.number) : "", key.pts,
                  static_cast<double>(key.pts) / static_cast<double>(kTicksPerSecond), key.size);
        if (key.frame)
            out.Print(",{},{},{}\n", key.frame->sample.offset, key.frame->units, key.frame->bytes);
        else
            out.Write(",,,\n");
    }
}

void PrintStats(const Stats& stats, Output& out) {
    const auto seconds = [](double ticks) { return ticks / static_cast<double>(kTicksPerSecond); };
    out.Print(
        "{} key frames, interval {:.3f} s at least, {:.3f} s on average, {:.3f} s at most, {:.0f} bytes a group\n",
        stats.count, seconds(static_cast<double>(stats.shortest)), seconds(stats.mean),
        seconds(static_cast<double>(stats.longest)), stats.gopBytes);
}

Json ToJson(const Source& source, uint32_t track, const std::vector<Key>& keys, const Stats& stats, bool hasTable) {
    Json json = {{"schema", "kivmp4.keys/1"}};
    AddFile(json, source.Path());
    json["track"] = track;
    json["all_key_frames"] = !hasTable;
    json["keys"] = Json::array();
    for (const Key& key : keys) {
        Json entry = {{"n", key.number - 1}, {"pts", key.pts}, {"pts_time", Seconds(key.pts)}, {"size", key.size}};
        if (key.frame)
            entry.update({{"sample", key.frame->sample.number},
                          {"pos", key.frame->sample.offset},
                          {"gop_units", key.frame->units},
                          {"gop_bytes", key.frame->bytes}});
        json["keys"].push_back(entry);
    }
    json["stats"] = {{"count", stats.count},
                     {"interval_min", Seconds(stats.shortest)},
                     {"interval_max", Seconds(stats.longest)},
                     {"interval_mean", Seconds(static_cast<int64_t>(stats.mean))},
                     {"gop_bytes_mean", static_cast<uint64_t>(stats.gopBytes)}};
    return json;
}

}  // namespace

ExitCode Keys(const Settings& settings, const KeysArguments& arguments, Output& out) {
    const Source source(arguments.file);
    Player player(source, settings);
    const uint32_t video = player.FirstVideo();
    player.SetEnabled(video, true);
    AccessUnit unit;
    KivMp4InitUnit(player.Handle(), &unit);
    std::vector<Key> keys;
    {
        const TrickMode trickMode(player.Handle());
        keys = arguments.backward ? StepBackward(player, unit) : StepForward(player, unit);
    }
    if (keys.empty())
        player.RequireTables();
    const inspect::Track* track = source.Track(video);
    std::vector<inspect::KeyFrame> frames;
    if (track) {
        frames = inspect::KeyFramesOf(*track);
        AddFrames(keys, frames, *track, inspect::AppliedDelay(source.Movie(), *track));
    }
    const Stats stats = StatsOf(keys);
    if (settings.json) {
        out.Write(Dump(ToJson(source, video, keys, stats, !keys.empty())));
    } else if (arguments.csv) {
        PrintCsv(keys, out);
    } else {
        PrintText(keys, out);
        if (arguments.stats)
            PrintStats(stats, out);
    }
    if (settings.quiet)
        return kDone;
    if (keys.empty())
        fmt::print(stderr, "{}: there is no table of key frames: every frame is one, and there is nothing to step by\n",
                   source.Name());
    else if (keys.size() == 1 && player.Duration() > kLongForOneKey)
        fmt::print(stderr, "{}: only one key frame: seeking and winding end there\n        hint: {}\n", source.Name(),
                   "encode with a key frame every few seconds (ffmpeg -g)");
    return kDone;
}

}  // namespace kivmp4::cli
