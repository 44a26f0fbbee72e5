// Rules about tracks: what is played of them, and what of their headers is not.
#include "check/Check.h"
#include "inspect/Facts.h"

#include <fmt/format.h>

#include <cmath>

namespace kivmp4::check {
namespace {

using namespace inspect;

constexpr double kNoticed = 0.1;  // seconds that sound and picture may be apart

void FindRefusal(Context& context, const Track& track) {
    const SampleEntry* entry = track.Entry();
    const bool encrypted = entry && entry->encrypted && track.Enabled();
    const bool disabled = track.box->Child("tkhd") && !track.Enabled();
    context.Add(disabled    ? "disabled-track"
                : encrypted ? "encrypted-track"
                            : "unsupported-track",
                *track.box, NameOf(track) + " " + (track.refusal.empty() ? track.undelivered : track.refusal));
}

// Seconds by which the edit list moves the track and the module does not.
double IgnoredShift(const Movie& movie, const Track& track, bool& cuts) {
    uint64_t empty = 0;
    size_t media = 0;
    int64_t start = 0;
    for (const Edit& edit : track.edits) {
        if (edit.mediaTime >= 0 && media++ == 0)
            start = edit.mediaTime;
        else if (edit.mediaTime < 0 && media == 0)
            empty += edit.duration;
    }
    cuts = media > 1;
    if (AppliedDelay(movie, track) || !movie.timescale || !track.timescale || !media)
        return 0;
    return static_cast<double>(empty) / movie.timescale - static_cast<double>(start) / track.timescale;
}

void FindEdits(Context& context, const Track& track) {
    bool cuts = false;
    const double shift = IgnoredShift(context.movie, track, cuts);
    if (cuts || shift > kNoticed || shift < -kNoticed)
        context.Add("edit-ignored", *track.elst.box,
                    fmt::format("{}: {} entries{}; the track would start {:.3f} s {} than it is played", NameOf(track),
                                track.edits.size(), cuts ? ", several parts of the track" : "", std::fabs(shift),
                                shift < 0 ? "earlier" : "later"));
}

void FindParameterSets(Context& context, const Track& track) {
    const SampleEntry& entry = *track.Entry();
    if (entry.type != "avc1")
        return;
    if (entry.avcCBroken)
        context.Add("parameter-sets", *entry.avcCBox, NameOf(track) + ": parameter sets run past the end of 'avcC'");
    else if (entry.sps.empty() || entry.pps.empty())
        context.Add("parameter-sets", *entry.avcCBox,
                    NameOf(track) + ": 'avcC' has " + std::to_string(entry.sps.size()) + " sequence and " +
                        std::to_string(entry.pps.size()) + " picture parameter sets");
}

}  // namespace

void FindTrackFaults(Context& context) {
    const Movie& movie = context.movie;
    bool any = false;
    for (const Track& track : movie.tracks) {
        any = any || track.Played();
        if (!track.Played()) {
            FindRefusal(context, track);
            continue;
        }
        FindParameterSets(context, track);
        if (track.timescale == 0)
            context.Add("timescale-zero", *track.box->Find("mdia/mdhd"), NameOf(track) + ": the timescale is 0");
        if (track.elst)
            FindEdits(context, track);
    }
    if (!movie.moov)
        return;
    if (!any)
        context.Add("no-track", *movie.moov, movie.tracks.empty() ? "has no track" : "none of its tracks is played");
    const Box* mvhd = movie.moov->Child("mvhd");
    if (mvhd && movie.timescale == 0)
        context.Add("timescale-zero", *mvhd, "the timescale of the movie is 0");
}

}  // namespace kivmp4::check
