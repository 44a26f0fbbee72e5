// kivmp4 info for programs.
#include <cmath>

#include "commands/Info.h"
#include "print/Json.h"
#include "print/Text.h"

namespace kivmp4::cli {

namespace {

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

}  // namespace

Json InfoJson(const FileView& file, const InfoArguments& arguments) {
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
                          {"window", inspect::kReadAhead},
                          {"ok", file.distance.bytes <= inspect::kReadAhead}};
    json["problems"] = Json::array();
    for (const check::Finding& loss : file.losses)
        json["problems"].push_back({{"severity", Name(loss.rule->severity)},
                                    {"rule", loss.rule->name},
                                    {"offset", loss.offset},
                                    {"path", loss.path},
                                    {"message", loss.message}});
    return json;
}

}  // namespace kivmp4::cli
