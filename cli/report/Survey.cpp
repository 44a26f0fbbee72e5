// What the pictures of a report are drawn from: the tracks, how long they last, and whose bytes are in the file.
#include "report/Survey.h"

#include <fmt/format.h>

namespace kivmp4::report {

namespace {

// Samples of tracks that are not played: forged tables could keep the report busy for hours.
constexpr uint64_t kMostIgnored = 1u << 24;

Lane LaneOf(const inspect::Movie& movie, const inspect::Track& track, const std::string& name, render::Colour colour) {
    const double delay = static_cast<double>(inspect::AppliedDelay(movie, track)) / 90000;
    return {&track, name, colour, delay, inspect::FactsOf(movie.Source(), track)};
}

}  // namespace

const char* KindName(const inspect::Track& track) {
    switch (track.MediaKind()) {
        case inspect::Kind::Video: return "video";
        case inspect::Kind::Audio: return "audio";
        default: return "other";
    }
}

std::string IgnoredTracks(const Survey& survey) {
    const size_t count = survey.ignored.size();
    return fmt::format("{} track{}", count, count == 1 ? " that is" : "s that are");
}

Survey::Survey(const inspect::Movie& of) : movie(of), widest(inspect::WidestDistance(of)) {
    uint64_t samples = 0;
    uint32_t listed = 0;
    for (const inspect::Track& track : movie.tracks) {
        const uint32_t number = listed;
        listed += track.refusal.empty();
        if (!track.timescale || !track.sampleCount)
            continue;
        if (track.Played()) {
            const std::string name = fmt::format("#{} {}", number, KindName(track));
            played.push_back(LaneOf(movie, track, name, render::ColourOf(played.size())));
            duration = std::max(duration, played.back().Duration() + played.back().delay);
        } else if ((samples += track.sampleCount) <= kMostIgnored) {
            ignored.push_back(LaneOf(movie, track, fmt::format("trak[{}]", track.trakIndex), render::kFaint));
            ignoredBytes += ignored.back().facts.readableBytes;
        }
    }
    duration = std::max(duration, 1e-3);
}

std::vector<const Lane*> Survey::Drawn() const {
    std::vector<const Lane*> drawn;
    for (size_t i = 0; i < std::min(kDrawn, played.size()); i++)
        drawn.push_back(&played[i]);
    return drawn;
}

}  // namespace kivmp4::report
