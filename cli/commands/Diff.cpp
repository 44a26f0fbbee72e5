// kivmp4 diff: compares the units of two files, track by track.
#include <algorithm>
#include <string_view>

#include "commands/Commands.h"
#include "play/Player.h"
#include "print/Json.h"
#include "print/Progress.h"

namespace kivmp4::cli {

namespace {

/// What is compared of a unit: 40 bytes each, so that files may be interleaved in different ways.
struct Unit {
    int64_t pts, dts, duration;
    size_t sum;  // of its bytes: two payloads that differ have the same one by chance once in 2^64 (2^32) cases
    int32_t size;
    bool sync;
};
using Units = std::vector<std::vector<Unit>>;  // by track

Units ReadUnits(const Settings& settings, const Source& source) {
    Player player(source, settings);
    player.Enable();
    Units units(player.TrackCount());
    AccessUnit unit;
    KivMp4InitUnit(player.Handle(), &unit);
    Progress progress(settings, "diff", source.File().Size());
    while (player.Next(unit)) {
        const auto size = static_cast<size_t>(unit.size);
        const std::string_view bytes(reinterpret_cast<const char*>(unit.payload), size);
        units[unit.trackIndex].push_back(
            {unit.pts, unit.dts, unit.duration, std::hash<std::string_view>()(bytes), unit.size, unit.isSync != 0});
        progress.Add(size);
    }
    player.RequireUnits();
    return units;
}

struct Difference {
    uint64_t count = 0;     // units of both tracks that differ
    uint64_t first = 0;     // number of the first one
    int64_t pts = 0;        // its time in the first file
    std::string what = {};  // of it
};

std::string Compare(const DiffArguments& arguments, const Unit& a, const Unit& b) {
    std::string what;
    const auto add = [&](const char* name) { what += (what.empty() ? "" : ", ") + std::string(name); };
    if (!arguments.onlyPayload) {
        if (a.pts != b.pts)
            add("pts");
        if (a.dts != b.dts)
            add("dts");
        if (a.duration != b.duration)
            add("duration");
        if (a.sync != b.sync)
            add("key");
    }
    if (!arguments.onlyTimes && (a.size != b.size || a.sum != b.sum))
        add("payload");
    return what;
}

Difference Compare(const DiffArguments& arguments, const std::vector<Unit>& a, const std::vector<Unit>& b) {
    Difference difference;
    for (size_t i = 0; i < std::min(a.size(), b.size()); i++) {
        const std::string what = Compare(arguments, a[i], b[i]);
        if (!what.empty() && difference.count++ == 0)
            difference = {1, i, a[i].pts, what};
    }
    return difference;
}

}  // namespace

ExitCode Diff(const Settings& settings, const DiffArguments& arguments, Output& out) {
    const Source first(arguments.first), second(arguments.second);
    const Units a = ReadUnits(settings, first), b = ReadUnits(settings, second);
    Json tracks = Json::array();
    bool same = a.size() == b.size();
    for (size_t track = 0; track < std::max(a.size(), b.size()); track++) {
        if (track >= a.size() || track >= b.size()) {
            const bool inFirst = track < a.size();
            tracks.push_back({{"index", track}, {"only_in", inFirst ? 0 : 1}});
            if (!settings.json)
                out.Print("#{}: only in {}\n", track, (inFirst ? first : second).Name());
            continue;
        }
        const Difference difference = Compare(arguments, a[track], b[track]);
        const bool equal = difference.count == 0 && a[track].size() == b[track].size();
        same = same && equal;
        Json json = {{"index", track},
                     {"equal", equal},
                     {"units", {a[track].size(), b[track].size()}},
                     {"different", difference.count}};
        if (difference.count)
            json["first"] = {{"sample", difference.first}, {"pts", difference.pts}, {"what", difference.what}};
        tracks.push_back(json);
        if (settings.json)
            continue;
        out.Print("#{}: {} and {} units, ", track, a[track].size(), b[track].size());
        if (difference.count)
            out.Print("{} differ; the first is sample {} at {}: {}\n", difference.count, difference.first,
                      FormatTime(difference.pts), difference.what);
        else
            out.Print("{}\n", equal ? "equal" : "equal as far as both go");
    }
    if (settings.json) {
        Json document = {{"schema", "kivmp4.diff/1"}, {"files", {first.Path(), second.Path()}}, {"equal", same}};
        document["tracks"] = tracks;
        out.Write(Dump(document));
    }
    return same ? kDone : kFound;
}

}  // namespace kivmp4::cli
