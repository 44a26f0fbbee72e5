// A file and its tracks as the library and as the command's own reader see them.
#pragma once

#include <KivMp4.h>

#include <cstdint>
#include <string>
#include <vector>

#include "check/Check.h"
#include "inspect/Facts.h"
#include "play/Player.h"
#include "print/Time.h"

namespace kivmp4::cli {

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

/// For people: "H.264". For programs: "h264".
const char* CodecName(const TrackView& view);
const char* CodecKey(const TrackView& view);
/// "High", "LC"; nothing when the track does not tell.
std::string ProfileName(const TrackView& view);
/// Ten times the level that the decoder needs, and the one that the file states.
uint32_t Level(const CodecInfo& info, bool is3D);
uint32_t LevelInFile(const CodecInfo& info);
uint32_t Channels(const TrackView& view);
/// Three letters, "und" when the track does not tell.
std::string Language(const CodecInfo& info);

/// The file, opened and looked through.
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

}  // namespace kivmp4::cli
