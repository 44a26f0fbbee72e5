// What the sample tables tell of a track as a whole, and of tracks together.
#include "inspect/Facts.h"

#include <algorithm>

namespace kivmp4::inspect {

Facts FactsOf(const File& file, const Track& track) {
    Facts facts;
    SampleWalk walk(track);
    int64_t start = 0, end = 0, keyAt = 0, longest = 0, readableUntil = 0;
    for (Sample sample; walk.Next(sample); facts.units++) {
        start = facts.units == 0 ? sample.cts : std::min(start, sample.cts);
        end = sample.dts + sample.duration;
        facts.bytes += sample.size;
        if (sample.key) {
            longest = facts.keys++ ? std::max(longest, sample.dts - keyAt) : 0;
            keyAt = sample.dts;
        }
        if (sample.End() <= file.Size()) {
            facts.readable++;
            facts.readableBytes += sample.size;
            readableUntil = end;
        }
    }
    if (facts.keys)
        longest = std::max(longest, end - keyAt);
    facts.start = ToTicks(start, track.timescale);
    facts.duration = ToTicks(end, track.timescale);
    facts.longestInterval = ToTicks(longest, track.timescale);
    facts.readableUntil = ToTicks(readableUntil, track.timescale);
    return facts;
}

std::vector<KeyFrame> KeyFramesOf(const Track& track) {
    std::vector<KeyFrame> keys;
    SampleWalk walk(track);
    for (Sample sample; walk.Next(sample);) {
        if (sample.key)
            keys.push_back({sample});
        if (keys.empty())
            continue;
        keys.back().units++;
        keys.back().bytes += sample.size;
    }
    return keys;
}

int64_t AppliedDelay(const Movie& movie, const Track& track) {
    const bool applied = track.edits.size() == 2 && track.edits[0].mediaTime == -1 && track.edits[1].mediaTime == 0;
    if (!applied || !movie.timescale)
        return 0;
    // The product wraps, as the module's does.
    const auto delay = static_cast<int64_t>(track.edits[0].duration * 90000 / movie.timescale);
    return std::clamp(delay, -kMostTicks, kMostTicks);
}

void WalkByTime(const Movie& movie, const std::function<void(double time, const std::vector<DueSample>& due)>& visit) {
    std::vector<DueSample> due;
    std::vector<SampleWalk> walks;  // of the same tracks
    for (const Track& track : movie.tracks) {
        if (!track.Played() || !track.timescale)
            continue;
        walks.emplace_back(track);
        due.push_back({&track, {}});
        if (!walks.back().Next(due.back().sample)) {
            walks.pop_back();
            due.pop_back();
        }
    }
    const auto timeOf = [](const DueSample& of) { return static_cast<double>(of.sample.dts) / of.track->timescale; };
    while (due.size() > 1) {
        const auto least = std::min_element(
            due.begin(), due.end(), [&](const DueSample& a, const DueSample& b) { return timeOf(a) < timeOf(b); });
        visit(timeOf(*least), due);
        const auto at = least - due.begin();
        if (!walks[static_cast<size_t>(at)].Next(least->sample)) {
            walks.erase(walks.begin() + at);
            due.erase(least);
        }
    }
}

Distance WidestDistance(const Movie& movie) {
    Distance widest;
    WalkByTime(movie, [&](double time, const std::vector<DueSample>& due) {
        const auto [low, high] = std::minmax_element(
            due.begin(), due.end(),
            [](const DueSample& a, const DueSample& b) { return a.sample.offset < b.sample.offset; });
        const uint64_t bytes = high->sample.offset - low->sample.offset;
        if (bytes > widest.bytes)
            widest = {bytes, low->sample.offset, time};
    });
    return widest;
}

}  // namespace kivmp4::inspect
