// kivmp4 extract: writes tracks to files, in a form that other programs read.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>

#include "commands/Adts.h"
#include "commands/Commands.h"
#include "inspect/Facts.h"
#include "play/Player.h"
#include "play/Preamble.h"
#include "print/Json.h"
#include "print/Progress.h"
#include "print/Text.h"

namespace kivmp4::cli {

namespace {

const char* FormatOf(const CodecInfo& info, const std::string& format) {
    if (format == "raw" || format == "pcm")
        return "raw";
    if (info.kind == KIVMP4_KIND_VIDEO)
        return info.subtype == KIVMP4_VIDEO_H264 ? "h264" : "m4v";
    return info.subtype == KIVMP4_AUDIO_AAC ? "aac" : "raw";
}

/// One track's output and what was written to it.
struct TrackFile {
    TrackFile(const std::string& path, bool replace) : file(path, replace) {}

    Output file;
    std::optional<AdtsFormat> adts;
    std::string preamble;     // to be written before the first unit unless that brings it
    int64_t end = INT64_MAX;  // pts from which units are left out, 90 kHz ticks
    uint64_t units = 0, bytes = 0;
};

using TrackFiles = std::map<uint32_t, TrackFile>;

std::vector<uint32_t> Wanted(const Player& player, const ExtractArguments& arguments) {
    std::vector<uint32_t> tracks = arguments.tracks;
    const auto add = [&](bool video) {
        for (uint32_t index = 0; index < player.TrackCount(); index++) {
            if (player.Track(index) && player.IsVideo(index) == video)
                return tracks.push_back(index);
        }
        throw player.Input().Refuse(kNotUsable, video ? "has no video track" : "has no audio track",
                                    "\"kivmp4 info\" lists the tracks");
    };
    if (arguments.video)
        add(true);
    if (arguments.audio)
        add(false);
    return tracks;
}

void RequireFormat(const Player& player, uint32_t track, const std::string& format) {
    const std::string natural = FormatOf(*player.Track(track), "auto");
    const std::string got = format == "pcm" ? "raw" : format;
    if (format != "auto" && format != "raw" && got != natural)
        throw player.Input().Refuse(kUsage, fmt::format("track {} cannot be written as {}", track, format),
                                    "its format is " + natural);
}

std::optional<AdtsFormat> AdtsFor(const Player& player, uint32_t track, const std::string& format) {
    const CodecInfo& info = *player.Track(track);
    if (std::strcmp(FormatOf(info, format), "aac") != 0)
        return std::nullopt;
    std::string why;
    const auto adts = AdtsFormat::FromConfig(info.config, info.configSize, why);
    if (!adts)
        throw player.Input().Refuse(kNotUsable, fmt::format("track {} cannot become an .aac file: {}", track, why),
                                    "--format raw writes its units as they are");
    return adts;
}

// A single track goes to the path itself, several into a directory.
std::string PathFor(const Player& player, const ExtractArguments& arguments, uint32_t track, bool single) {
    namespace fs = std::filesystem;
    std::error_code error;
    const bool directory = !single || arguments.output.ends_with('/') || fs::is_directory(arguments.output, error);
    if (!directory || arguments.output == "-")
        return arguments.output;
    fs::create_directories(arguments.output, error);
    if (error)
        throw Failure{kCannotWrite, Escape(arguments.output) + ": cannot create the directory: " + error.message(),
                      "choose another place"};
    const std::string name = fmt::format("track{}.{}", track, FormatOf(*player.Track(track), arguments.format));
    return (fs::path(arguments.output) / name).string();
}

void CreateFiles(const Player& player, const ExtractArguments& arguments, const std::vector<uint32_t>& tracks,
                 TrackFiles& files) {
    const bool single = tracks.size() == 1 && (!arguments.tracks.empty() || arguments.video || arguments.audio);
    if (arguments.output == "-" && tracks.size() != 1)
        throw player.Input().Refuse(kUsage, "standard output takes one track", "choose one with --track");
    // All questions come before the first file.
    std::map<uint32_t, std::optional<AdtsFormat>> formats;
    for (const uint32_t track : tracks) {
        RequireFormat(player, track, arguments.format);
        formats[track] = AdtsFor(player, track, arguments.format);
    }
    for (const uint32_t track : tracks) {
        const std::string path = PathFor(player, arguments, track, single);
        if (path != "-" && player.Input().File().Is(path))
            throw Failure{kCannotWrite, Escape(path) + " is the file to read from", "choose another place"};
        TrackFile& file = files.try_emplace(track, path, arguments.force).first->second;
        file.adts = formats[track];
    }
}

/// The part of the file to write. Ticks.
struct Part {
    std::optional<int64_t> from, to;  // rounded to key frames of the leading track
};

// Rounds to the key frame before `from` and to the one after `to`: whole groups of pictures can be decoded.
Part RoundToKeys(const Source& source, uint32_t leader, std::optional<int64_t> from, std::optional<int64_t> to) {
    Part part;
    const inspect::Track* track = source.Track(leader);
    if (!track)
        return {from, to};
    const int64_t delay = inspect::AppliedDelay(source.Movie(), *track);
    for (const inspect::KeyFrame& key : inspect::KeyFramesOf(*track)) {
        const int64_t pts = inspect::ToTicks(key.sample.cts, track->timescale) + delay;
        if (from && (!part.from || pts <= *from))
            part.from = pts;
        if (to && !part.to && pts >= *to)
            part.to = pts;
    }
    return part;
}

// Moves all tracks to the part's start. Video starts at that key frame, the others with it.
void GoTo(Player& player, const Part& part, uint32_t leader, bool quiet) {
    const Source& source = player.Input();
    const inspect::Track* track = source.Track(leader);
    const int64_t delay = track ? inspect::AppliedDelay(source.Movie(), *track) : 0;
    if (part.from && KivMp4JumpPTS(player.Handle(), *part.from - delay) != KIVMP4_OK)
        throw source.Refuse(kUsage, "cannot start at " + FormatTime(*part.from),
                            "the time must lie before the last unit, and the file needs a table of key frames");
    if (!quiet && (part.from || part.to))
        fmt::print(stderr, "{}: from {} to {}, whole groups of pictures\n", source.Name(),
                   part.from ? FormatTime(*part.from) : "the start", part.to ? FormatTime(*part.to) : "the end");
}

void WriteUnit(const Player& player, TrackFile& target, const AccessUnit& unit) {
    const std::string_view bytes(reinterpret_cast<const char*>(unit.payload), static_cast<size_t>(unit.size));
    if (target.units == 0 && !bytes.starts_with(target.preamble)) {
        target.file.Write(target.preamble);
        target.bytes += target.preamble.size();
    }
    if (target.adts) {
        const auto header = target.adts->Header(bytes.size());
        if (!header)
            throw player.Input().Refuse(kStopped,
                                        fmt::format("track {}: a unit of {} bytes is too large for an .aac file",
                                                    unit.trackIndex, bytes.size()),
                                        "--format raw writes the units as they are");
        target.file.Write(header->data(), header->size());
        target.bytes += header->size();
    }
    target.file.Write(bytes);
    target.bytes += bytes.size();
    target.units++;
}

void Finish(const Settings& settings, TrackFiles& files, Output& out) {
    Json list = Json::array();
    for (auto& [track, target] : files) {
        target.file.Finish();
        list.push_back(
            {{"track", track}, {"output", target.file.Name()}, {"units", target.units}, {"bytes", target.bytes}});
        if (settings.json || settings.quiet)
            continue;
        const std::string line =
            fmt::format("{}: {} units, {} bytes\n", target.file.Name(), target.units, target.bytes);
        if (target.file.IsStandard())
            fmt::print(stderr, "{}", line);
        else
            out.Write(line);
    }
    // Standard output cannot carry two things.
    if (settings.json && !(files.size() == 1 && files.begin()->second.file.IsStandard()))
        out.Write(Dump({{"schema", "kivmp4.extract/1"}, {"files", list}}));
}

void Deliver(Player& player, const Settings& settings, TrackFiles& files, const Part& part) {
    AccessUnit unit;
    KivMp4InitUnit(player.Handle(), &unit);
    Progress progress(settings, "extract", player.Input().File().Size());
    while (player.Next(unit)) {
        progress.Add(static_cast<uint64_t>(unit.size));
        // Pictures that are shown before the end may follow in the file one that is not; only a key frame ends them.
        if (part.to && unit.pts >= *part.to && unit.isSync) {
            player.SetEnabled(unit.trackIndex, false);
            continue;
        }
        WriteUnit(player, files.at(unit.trackIndex), unit);
    }
}

}  // namespace

ExitCode Extract(const Settings& settings, const ExtractArguments& arguments, Output& out) {
    const Source source(arguments.file);
    Player player(source, settings);
    const std::vector<uint32_t> tracks = player.Enable(Wanted(player, arguments));
    TrackFiles files;
    CreateFiles(player, arguments, tracks, files);
    for (auto& [track, file] : files)
        file.preamble = FormatOf(*player.Track(track), arguments.format) == std::string("raw")
                            ? ""
                            : Preamble(*player.Track(track), source.Track(track));
    uint32_t leader = tracks.front();
    for (const uint32_t track : tracks)
        leader = player.IsVideo(track) ? track : leader;
    const auto at = [&](const std::optional<TimeArgument>& time) {
        return time ? std::optional(time->At(player.Duration())) : std::nullopt;
    };
    const Part part = RoundToKeys(source, leader, at(arguments.from), at(arguments.to));
    GoTo(player, part, leader, settings.quiet);
    try {
        Deliver(player, settings, files, part);
    } catch (const Failure& failure) {
        // What came before the damage is kept and counted.
        if (failure.exitCode == kStopped || failure.exitCode == kCannotRead)
            Finish(settings, files, out);
        throw;
    }
    if (!part.from && !part.to)
        player.RequireUnits();
    Finish(settings, files, out);
    return kDone;
}

}  // namespace kivmp4::cli
