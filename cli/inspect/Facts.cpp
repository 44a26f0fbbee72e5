// What the sample tables tell of a track as a whole, and of tracks together.
#include "inspect/Facts.h"

#include <algorithm>
#include <list>

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
    return applied && movie.timescale ? static_cast<int64_t>(track.edits[0].duration * 90000 / movie.timescale) : 0;
}

namespace {

// How far a player has come in one track.
struct Reached {
    explicit Reached(const Track& of) : track(&of), walk(of) {}
    bool Next() { return walk.Next(sample); }
    double Time() const { return static_cast<double>(sample.dts) / track->timescale; }

    const Track* track;
    SampleWalk walk;
    Sample sample;
};

}  // namespace

Distance WidestDistance(const Movie& movie) {
    std::list<Reached> tracks;
    for (const Track& track : movie.tracks) {
        if (track.Played() && track.timescale && !tracks.emplace_back(track).Next())
            tracks.pop_back();
    }
    Distance widest;
    while (tracks.size() > 1) {
        uint64_t low = UINT64_MAX, high = 0;
        for (const Reached& reached : tracks) {
            low = std::min(low, reached.sample.offset);
            high = std::max(high, reached.sample.offset);
        }
        const auto least = std::min_element(tracks.begin(), tracks.end(),
                                            [](const Reached& a, const Reached& b) { return a.Time() < b.Time(); });
        if (high - low > widest.bytes)
            widest = {high - low, low, least->Time()};
        if (!least->Next())
            tracks.erase(least);
    }
    return widest;
}

}  // namespace kivmp4::inspect
