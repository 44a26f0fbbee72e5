// kivmp4 info: what the file holds, and what a decoder is told of each track.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "Commands.h"
#include "Diagnosis.h"
#include "Json.h"
#include "Player.h"
#include "Text.h"
#include "inspect/Facts.h"

namespace kivmp4::cli {

namespace {

constexpr uint64_t kWindow = 192 << 10;               // bytes that the library reads ahead
constexpr size_t kLevelAt = 3, kCompatibilityAt = 2;  // in an AVCDecoderConfigurationRecord

/// One track as the library and as the command's own reader see it.
struct TrackView {
    uint32_t index;
    const CodecInfo* info;        // null: the library lists the track and cannot deliver it
    const inspect::Track* track;  // null: only the library sees it
    inspect::Facts facts;
    int64_t start;  // of its presentation, 90 kHz ticks

    bool IsVideo() const { return info && info->kind == KIVMP4_KIND_VIDEO; }
    bool IsH264() const { return IsVideo() && info->subtype == KIVMP4_VIDEO_H264; }
    bool IsAac() const { return info && !IsVideo() && info->subtype == KIVMP4_AUDIO_AAC; }
    double BitRate() const {
        return facts.duration > 0
                   ? static_cast<double>(facts.bytes) * 8 * kTicksPerSecond / static_cast<double>(facts.duration)
                   : 0;
    }
    double FrameRate() const {
        return facts.duration > 0
                   ? static_cast<double>(facts.units) * kTicksPerSecond / static_cast<double>(facts.duration)
                   : 0;
    }
};

const char* CodecName(const TrackView& view) {
    if (!view.info)
        return "not played";
    if (view.IsVideo())
        return view.IsH264() ? "H.264" : view.info->subtype == KIVMP4_VIDEO_MPEG4 ? "MPEG-4 visual" : "unknown";
    return view.IsAac() ? "AAC" : "waveform";
}

const char* CodecKey(const TrackView& view) {
    if (!view.info)
        return "unknown";
    if (view.IsVideo())
        return view.IsH264() ? "h264" : view.info->subtype == KIVMP4_VIDEO_MPEG4 ? "mpeg4" : "unknown";
    return view.IsAac() ? "aac" : "waveform";
}

std::string ProfileName(const TrackView& view) {
    if (view.IsAac()) {
        const unsigned type = view.info->configSize ? view.info->config[0] >> 3 : 0u;
        switch (type) {
            case 1: return "Main";
            case 2: return "LC";
            case 3: return "SSR";
            case 4: return "LTP";
            case 5: return "HE-AAC";
            case 29: return "HE-AAC v2";
            default: return "";
        }
    }
    if (!view.IsH264())
        return "";
    const bool constrained = view.info->configSize > kCompatibilityAt && view.info->config[kCompatibilityAt] & 0x40;
    switch (view.info->profile) {
        case 66: return constrained ? "Constrained Baseline" : "Baseline";
        case 77: return "Main";
        case 88: return "Extended";
        case 100: return "High";
        case 110: return "High 10";
        case 122: return "High 4:2:2";
        case 244: return "High 4:4:4 Predictive";
        default: return view.info->profile ? fmt::format("profile {}", view.info->profile) : "";
    }
}

std::string LevelText(uint32_t level) { return fmt::format("{}.{}", level / 10, level % 10); }

// A name that marks a 3D file raises every video track's level.
uint32_t Level(const CodecInfo& info, bool is3D) {
    const auto raised = static_cast<uint32_t>(KIVMP4_LEVEL_3D);
    return is3D && info.level >= raised ? info.level - raised : info.level;
}

uint32_t LevelInFile(const CodecInfo& info) { return info.configSize > kLevelAt ? info.config[kLevelAt] : 0; }

// AAC tells a layout by number: 7 stands for eight channels, 0 for a layout that the stream itself describes.
uint32_t Channels(const TrackView& view) { return view.IsAac() && view.info->channels == 7 ? 8 : view.info->channels; }

std::string Language(const CodecInfo& info) {
    const std::string language(info.language, strnlen(info.language, sizeof info.language));
    const bool letters = language.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos;
    return language.empty() || !letters ? "und" : language;
}

// The file, opened and looked through.
struct FileView {
    FileView(const Source& input, const Settings& settings);

    const Source& source;
    Player player;
    std::vector<TrackView> tracks;
    std::vector<check::Finding> losses;
    inspect::Distance distance;
    int64_t tablesDuration = 0;  // of the longest track, 90 kHz ticks

    double BitRate() const {
        const int64_t ticks = player.Duration() > 0 ? player.Duration() : tablesDuration;
        return ticks > 0 ? static_cast<double>(source.File().Size()) * 8 * kTicksPerSecond / static_cast<double>(ticks)
                         : 0;
    }
    // Headers round, and encoders leave out some silence.
    bool DurationsDiffer() const { return std::abs(player.Duration() - tablesDuration) > kTicksPerSecond / 10; }
};

FileView::FileView(const Source& input, const Settings& settings)
    : source(input),
      player(input, settings),
      losses(Diagnosis(input, check::Extent::Structure).Losses()),
      distance(inspect::WidestDistance(input.Movie())) {
    for (uint32_t index = 0; index < player.TrackCount(); index++) {
        TrackView view{index, player.Track(index), source.Track(index), {}, 0};
        // A track that is not delivered may have billions of samples, each some bytes of sound.
        if (view.track && view.info) {
            view.facts = inspect::FactsOf(source.File(), *view.track);
            const int64_t delay = inspect::AppliedDelay(source.Movie(), *view.track);
            view.start = view.facts.start + delay;
            tablesDuration = std::max(tablesDuration, view.facts.duration + delay);
        }
        tracks.push_back(view);
    }
}

// ---- for people

std::string RotationText(const inspect::Track& track) {
    std::string text = track.mirrored ? "mirrored" : "";
    if (track.rotation > 0)
        text += fmt::format("{}to be turned by {}°", text.empty() ? "" : ", ", track.rotation);
    return text;
}

void PrintVideo(const TrackView& view, bool is3D, std::vector<std::string>& first, std::vector<std::string>& second) {
    const CodecInfo& info = *view.info;
    const std::string profile = ProfileName(view);
    std::string codec = CodecName(view);
    if (!profile.empty())
        codec += " " + profile + "@" + LevelText(Level(info, is3D));
    first.push_back(codec);
    first.push_back(fmt::format("{}x{}{}", info.width, info.height, is3D ? " 3D" : ""));
    if (view.FrameRate() > 0)
        first.push_back(fmt::format("{:.3f} fps", view.FrameRate()));
    if (view.IsH264() && profile.empty())
        second.push_back("its parameter sets cannot be read");
    else if (view.IsH264()) {
        second.push_back(fmt::format("refs {}", info.refFrames));
        second.push_back(fmt::format("buffering {}", info.decFrameBuffering));
        if (Level(info, is3D) != LevelInFile(info))
            second.push_back("level in the file " + LevelText(LevelInFile(info)) + ", raised for its references");
    }
}

void PrintAudio(const TrackView& view, std::vector<std::string>& first, std::vector<std::string>& second) {
    const std::string profile = ProfileName(view);
    first.push_back(CodecName(view) + (profile.empty() ? "" : " " + profile));
    first.push_back(view.info->sampleRate ? fmt::format("{} Hz", view.info->sampleRate) : "rate not told");
    first.push_back(view.IsAac() && view.info->channels == 0 ? "channels told in the stream"
                                                             : Count(Channels(view), "channel"));
    second.push_back(fmt::format("{} bits a sample", view.info->bitsPerSample));
    if (view.info->maxBitrate)
        second.push_back("at most " + FormatRate(view.info->maxBitrate));
}

void PrintPlace(const TrackView& view, std::vector<std::string>& second) {
    const inspect::Track& track = *view.track;
    if (const inspect::SampleEntry* entry = track.Entry()) {
        second.insert(second.begin(), inspect::TypeText(entry->type));
        if (entry->nalLengthSize)
            second.insert(second.begin() + 1, fmt::format("NAL length {}, {} SPS {} PPS", entry->nalLengthSize,
                                                          entry->sps.size(), entry->pps.size()));
    }
    if (const std::string rotation = RotationText(track); !rotation.empty())
        second.push_back(rotation);
    if (view.start)
        second.push_back("starts at " + FormatTime(view.start));
    second.push_back(fmt::format("trak[{}], ID {}", track.trakIndex, track.id));
}

std::string Joined(const std::vector<std::string>& parts, const char* between) {
    return fmt::format("{}", fmt::join(parts, between));
}

void PrintTrack(const TrackView& view, const FileView& file, bool config, Output& out) {
    std::vector<std::string> first, second;
    if (!view.info)
        first.push_back("listed, but cannot be delivered");
    else if (view.IsVideo())
        PrintVideo(view, file.player.Is3D(), first, second);
    else
        PrintAudio(view, first, second);
    if (view.track && view.info) {
        first.push_back(Count(view.facts.units, "unit"));
        if (view.IsVideo() && view.track->stss.count)
            first.push_back(
                Count(view.facts.keys, "key frame") + " (max gap " +
                fmt::format("{:.3f} s)", static_cast<double>(view.facts.longestInterval) / kTicksPerSecond));
        else if (view.IsVideo())
            first.push_back("all key frames");
        if (view.BitRate() > 0)
            first.push_back(FormatRate(view.BitRate()));
    }
    if (view.track)
        PrintPlace(view, second);
    if (view.info)
        first.push_back(Language(*view.info));
    const char* kind = !view.info ? "other" : view.IsVideo() ? "video" : "audio";
    out.Print("  {} {}  {}\n", out.Painted(Paint::Bold, fmt::format("#{}", view.index)), kind, Joined(first, "   "));
    if (!second.empty())
        out.Print("            {}\n", Joined(second, ", "));
    if (config && view.info)
        out.Print("            config {}\n", view.info->configSize ? Hex(view.info->config, view.info->configSize)
                                                                   : "none, or 256 bytes and more");
}

void Print(const FileView& file, const InfoArguments& arguments, Output& out) {
    const inspect::Movie& movie = file.source.Movie();
    const int64_t duration = file.player.Duration();
    std::vector<std::string> parts = {FormatBytes(file.source.File().Size()),
                                      duration > 0 ? FormatTime(duration) : "duration not told"};
    if (file.BitRate() > 0)
        parts.push_back(FormatRate(file.BitRate()));
    parts.push_back(movie.MoovFirst() ? "moov first (fast start)" : "moov last");
    if (const std::string brand = inspect::TypeText(movie.majorBrand); !brand.empty())
        parts.push_back(brand.substr(0, brand.find_last_not_of(' ') + 1));
    if (file.player.Is3D())
        parts.push_back("3D by its name");
    out.Print("{}  {}\n", out.Painted(Paint::Bold, fmt::format("{:<42}", file.source.Name())), Joined(parts, "   "));
    if (duration > 0 && file.DurationsDiffer())
        out.Print("  the samples last {}\n", FormatTime(file.tablesDuration));
    for (const TrackView& view : file.tracks) {
        if (!arguments.track || *arguments.track == view.index)
            PrintTrack(view, file, arguments.config, out);
    }
    if (file.tracks.size() > 1)
        out.Print("  interleaving: largest distance {} at {} (read-ahead window 192 KiB)  {}\n",
                  FormatBytes(file.distance.bytes),
                  FormatTime(static_cast<int64_t>(file.distance.time * static_cast<double>(kTicksPerSecond))),
                  file.distance.bytes <= kWindow ? "ok" : out.Painted(Paint::Yellow, "too wide"));
    for (const check::Finding& loss : file.losses)
        out.Print("  {}: {}\n",
                  out.Painted(loss.rule->severity == check::Severity::Error ? Paint::Red : Paint::Yellow,
                              Name(loss.rule->severity)),
                  check::WithPlace(loss));
}

// ---- for programs

void AddVideo(const TrackView& view, bool is3D, Json& json) {
    const CodecInfo& info = *view.info;
    json["width"] = info.width;
    json["height"] = info.height;
    if (view.track) {
        json["rotation"] = view.track->rotation;
        json["mirrored"] = view.track->mirrored;
    }
    json["frame_rate"] = std::round(view.FrameRate() * 1e6) / 1e6;
    json["mean_sample_duration_100us"] = info.meanSampleDuration;
    json["max_track_offset"] = info.maxTrackOffset;
    if (!view.IsH264())
        return;
    json["profile"] = info.profile;
    json["profile_name"] = ProfileName(view);
    json["level"] = Level(info, is3D);
    json["level_in_file"] = LevelInFile(info);
    json["ref_frames"] = info.refFrames;
    json["dec_frame_buffering"] = info.decFrameBuffering;
    if (view.track && view.track->Entry()) {
        json["nal_length_size"] = view.track->Entry()->nalLengthSize;
        json["sps_count"] = view.track->Entry()->sps.size();
        json["pps_count"] = view.track->Entry()->pps.size();
    }
}

void AddAudio(const TrackView& view, Json& json) {
    const CodecInfo& info = *view.info;
    json["profile_name"] = ProfileName(view);
    json["sample_rate"] = info.sampleRate;
    json["channels"] = Channels(view);
    json["bits_per_sample"] = info.bitsPerSample;
    json["max_bit_rate"] = info.maxBitrate;
    json["avg_bit_rate"] = info.avgBitrate;
    json["buffer_size"] = info.bufferSize;
}

Json EditsOf(const inspect::Track& track) {
    Json edits = Json::array();
    for (const inspect::Edit& edit : track.edits)
        edits.push_back({{"duration", edit.duration}, {"media_time", edit.mediaTime}, {"rate", edit.rate / 65536.0}});
    return edits;
}

void AddTables(const TrackView& view, const inspect::Movie& movie, Json& json) {
    const inspect::Track& track = *view.track;
    json["trak"] = track.trakIndex;
    json["track_id"] = track.id;
    json["codec_tag"] = track.Entry() ? inspect::TypeText(track.Entry()->type) : "";
    json["timescale"] = track.timescale;
    json["units"] = view.facts.units;
    json["key_units"] = view.facts.keys;
    json["max_key_interval"] = Seconds(view.facts.longestInterval);
    json["start_pts"] = view.start;
    json["start_time"] = Seconds(view.start);
    json["duration"] = Seconds(view.facts.duration);
    json["bytes"] = view.facts.bytes;
    json["bit_rate"] = std::llround(view.BitRate());
    json["edits"] = EditsOf(track);
    json["applied_delay"] = Seconds(inspect::AppliedDelay(movie, track));
}

Json ToJson(const TrackView& view, const FileView& file) {
    Json json = {{"index", view.index},
                 {"codec_type", !view.info       ? "unknown"
                                : view.IsVideo() ? "video"
                                                 : "audio"},
                 {"codec_name", CodecKey(view)},
                 {"time_base", "1/90000"}};
    if (view.track)
        AddTables(view, file.source.Movie(), json);
    if (!view.info)
        return json;
    if (view.IsVideo())
        AddVideo(view, file.player.Is3D(), json);
    else
        AddAudio(view, json);
    json["language"] = Language(*view.info);
    json["config_size"] = view.info->configSize;
    json["config"] = Hex(view.info->config, view.info->configSize);
    return json;
}

Json ToJson(const FileView& file, const InfoArguments& arguments) {
    const inspect::Movie& movie = file.source.Movie();
    Json json = {{"schema", "kivmp4.info/1"}, {"tool", KIVMP4_VERSION}};
    AddFile(json, file.source.Path());
    json["size"] = file.source.File().Size();
    json["duration"] = Seconds(file.player.Duration());
    json["duration_ticks"] = file.player.Duration();
    json["samples_duration"] = Seconds(file.tablesDuration);
    json["bit_rate"] = std::llround(file.BitRate());
    json["moov_first"] = movie.MoovFirst();
    json["is_3d"] = file.player.Is3D();
    json["major_brand"] = inspect::TypeText(movie.majorBrand);
    json["brands"] = Json::array();
    for (const std::string& brand : movie.brands)
        json["brands"].push_back(inspect::TypeText(brand));
    json["track_count"] = file.tracks.size();
    json["refused_tracks"] = Json::array();
    for (const inspect::Track& track : movie.tracks) {
        if (!track.refusal.empty())
            json["refused_tracks"].push_back(
                {{"trak", track.trakIndex}, {"track_id", track.id}, {"reason", Escape(track.refusal)}});
    }
    json["tracks"] = Json::array();
    for (const TrackView& view : file.tracks) {
        if (!arguments.track || *arguments.track == view.index)
            json["tracks"].push_back(ToJson(view, file));
    }
    json["interleave"] = {{"max_distance", file.distance.bytes},
                          {"time", file.distance.time},
                          {"window", kWindow},
                          {"ok", file.distance.bytes <= kWindow}};
    json["problems"] = Json::array();
    for (const check::Finding& loss : file.losses)
        json["problems"].push_back({{"severity", Name(loss.rule->severity)},
                                    {"rule", loss.rule->name},
                                    {"offset", loss.offset},
                                    {"path", loss.path},
                                    {"message", loss.message}});
    return json;
}

// A file that lacks something is told of, and still is no success for a script.
ExitCode ExitCodeOf(const FileView& file) {
    ExitCode code = kDone;
    for (const check::Finding& loss : file.losses) {
        if (!std::strcmp(loss.rule->name, "truncated"))
            code = Worse(code, kStopped);
        if (!std::strcmp(loss.rule->name, "fragmented"))
            code = Worse(code, kNotUsable);
    }
    return code;
}

}  // namespace

ExitCode Info(const Settings& settings, const InfoArguments& arguments, Output& out) {
    return EachFile(settings, arguments.files, out, [&](const std::string& path) {
        const Source source(path);
        FileView file(source, settings);
        if (arguments.track && *arguments.track >= file.tracks.size())
            throw source.Refuse(kUsage, fmt::format("has no track {}", *arguments.track));
        source.RequireReads();
        if (settings.json)
            out.Write(Dump(ToJson(file, arguments)));
        else
            Print(file, arguments, out);
        return ExitCodeOf(file);
    });
}

}  // namespace kivmp4::cli
