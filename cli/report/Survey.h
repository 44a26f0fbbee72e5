// What the pictures of a report are drawn from: the tracks, how long they last, and whose bytes are in the file.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "inspect/Facts.h"
#include "render/Plot.h"

namespace kivmp4::report {

constexpr size_t kDrawn = 8;      // tracks; more of them could not be told apart
constexpr size_t kColumns = 500;  // of a picture: as fine as a screen shows

/// A track whose samples are drawn.
struct Lane {
    const inspect::Track* track;
    std::string name;  // "#0 video"
    render::Colour colour;
    double delay;  // seconds that the edit list adds
    inspect::Facts facts;

    bool IsVideo() const { return track->MediaKind() == inspect::Kind::Video; }
    /// Seconds from its first to its last sample, at least a moment.
    double Duration() const { return std::max(1e-3, static_cast<double>(facts.duration) / 90000); }
    double BitRate() const { return static_cast<double>(facts.bytes) * 8 / Duration(); }
    /// When a sample is shown, in seconds.
    double Time(const inspect::Sample& sample) const {
        return static_cast<double>(sample.cts) / track->timescale + delay;
    }
};

struct Survey {
    explicit Survey(const inspect::Movie& of);

    const inspect::Movie& movie;
    std::vector<Lane> played;   // in the order of the file
    std::vector<Lane> ignored;  // that the library does not play, as far as their tables can be read
    double duration = 0;        // seconds from 0 to the end of the last track; above 0
    uint64_t ignoredBytes = 0;  // in the file, of tracks that are not played
    inspect::Distance widest;   // between played tracks

    /// Much of the file is for tracks that are not played.
    bool IsCrowded() const { return ignoredBytes > FileSize() / 10; }
    uint64_t FileSize() const { return movie.Source().Size(); }
    /// The first played tracks, as many as are drawn.
    std::vector<const Lane*> Drawn() const;
};

/// "video", "audio" or "other"
const char* KindName(const inspect::Track& track);
/// "1 track that is", "7 tracks that are"
std::string IgnoredTracks(const Survey& survey);

/// Calls `visit` with each sample of the lane.
template <typename Visit>
void ForEachSample(const Lane& lane, Visit visit) {
    inspect::SampleWalk walk(*lane.track);
    for (inspect::Sample sample; walk.Next(sample);)
        visit(sample);
}

/// Equal columns over [low, high).
struct Columns {
    double low, high;
    size_t count = kColumns;

    /// The column of a value; the first or the last one for values outside.
    size_t Of(double value) const {
        const double share = std::clamp((value - low) / (high - low), 0.0, 1.0);
        return std::min(count - 1, static_cast<size_t>(share * static_cast<double>(count)));
    }
    double Width() const { return (high - low) / static_cast<double>(count); }
    double Middle(size_t column) const { return low + (static_cast<double>(column) + 0.5) * Width(); }
};

/// Columns of time, each of which has a unit of the lane unless these come in bursts.
inline Columns ColumnsFor(const Survey& survey, const Lane& lane) {
    return {0, survey.duration, std::clamp<size_t>(lane.facts.units, 1, kColumns)};
}

}  // namespace kivmp4::report
