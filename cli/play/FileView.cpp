// A file looked through twice, and the names of what it holds.
#include "play/FileView.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "play/Diagnosis.h"

namespace kivmp4::cli {

namespace {

constexpr size_t kLevelAt = 3, kCompatibilityAt = 2;  // in an AVCDecoderConfigurationRecord

}  // namespace

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

}  // namespace kivmp4::cli
