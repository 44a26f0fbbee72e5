// Rules about times: durations of samples and in headers, distances between key frames.
#include "check/Check.h"

#include <fmt/format.h>

#include <algorithm>

namespace kivmp4::check {
namespace {

using namespace inspect;

constexpr double kMediaTolerance = 0.1;  // seconds between a header and the samples
constexpr double kMovieTolerance = 1;    // the movie's header is rounded, and encoders leave some silence out
constexpr double kLongForOneKey = 10;    // seconds

double Seconds(uint64_t units, uint32_t timescale) { return timescale ? static_cast<double>(units) / timescale : 0; }

void FindZeroDurations(Context& context, const Track& track) {
    for (uint32_t i = 0; i < track.stts.count; i++) {
        if (track.stts.At(i, 1) || !track.stts.At(i))
            continue;
        context.Add("stts-zero", track.stts.OffsetOf(i), track.stts.box->Path(),
                    NameOf(track) + ": entry " + std::to_string(i) + " gives " + std::to_string(track.stts.At(i)) +
                        " samples no duration");
        return;
    }
}

uint64_t MediaDuration(const Track& track) {
    uint64_t units = 0;
    for (uint32_t i = 0; i < track.stts.count; i++)
        units += uint64_t{track.stts.At(i)} * track.stts.At(i, 1);
    return units;
}

bool IsTold(uint64_t duration) { return duration && duration != UINT32_MAX && duration != UINT64_MAX; }

void AddDuration(Context& context, const Box& box, const std::string& whose, double header, double tables) {
    context.Add("duration", box,
                fmt::format("{}: the header says {:.3f} s, the samples last {:.3f} s", whose, header, tables));
}

void FindMediaDuration(Context& context, const Track& track) {
    const double header = Seconds(track.duration, track.timescale);
    const double tables = Seconds(MediaDuration(track), track.timescale);
    if (IsTold(track.duration) && std::max(header, tables) - std::min(header, tables) > kMediaTolerance)
        AddDuration(context, *track.box->Find("mdia/mdhd"), NameOf(track), header, tables);
}

// What is shown of a track is what its edit list says, if it has one.
double ShownDuration(const Movie& movie, const Track& track) {
    uint64_t units = 0;
    for (const Edit& edit : track.edits)
        units += edit.duration;
    return units ? Seconds(units, movie.timescale) : Seconds(MediaDuration(track), track.timescale);
}

void FindMovieDuration(Context& context) {
    const Movie& movie = context.movie;
    const Box* mvhd = movie.moov ? movie.moov->Child("mvhd") : nullptr;
    if (!mvhd || !movie.timescale || !IsTold(movie.duration))
        return;
    double longest = 0;
    for (const Track& track : movie.tracks)
        longest = std::max(longest, ShownDuration(movie, track));
    const double header = Seconds(movie.duration, movie.timescale);
    if (std::max(header, longest) - std::min(header, longest) > kMovieTolerance)
        AddDuration(context, *mvhd, "movie", header, longest);
}

void FindOneKey(Context& context, const Track& track) {
    const double length = Seconds(MediaDuration(track), track.timescale);
    if (track.MediaKind() == Kind::Video && track.stss.count == 1 && length > kLongForOneKey)
        context.Add("one-gop", *track.stss.box, NameOf(track) + ": only one key frame; seeking ends there");
}

}  // namespace

void FindTimeFaults(Context& context) {
    bool counted = true;
    for (const Finding& finding : context.findings)
        counted = counted && std::string(finding.rule->name) != "table-short" &&
                  std::string(finding.rule->name) != "stts-count";
    if (context.movie.fragment)
        return;
    for (const Track& track : context.movie.tracks) {
        if (!track.Played())
            continue;
        FindZeroDurations(context, track);
        // A table of times that speaks of other samples tells no duration.
        if (counted && track.stts)
            FindMediaDuration(context, track);
        FindOneKey(context, track);
    }
    if (counted && !context.movie.tracks.empty())
        FindMovieDuration(context);
}

}  // namespace kivmp4::check
