// Rules about where samples lie: inside the file's data, apart from each other, near those that are due with them.
#include "check/Check.h"
#include "inspect/Facts.h"

#include <fmt/format.h>

#include <algorithm>

namespace kivmp4::check {
namespace {

using namespace inspect;

constexpr uint64_t kTold = 1 << 20;  // bytes that it tells players to expect

bool IsInside(const std::vector<const Box*>& data, const Sample& sample) {
    // The last one that starts at the sample or before it.
    auto next = std::upper_bound(data.begin(), data.end(), sample.offset,
                                 [](uint64_t offset, const Box* box) { return offset < box->Content(); });
    return next != data.begin() && sample.End() <= (*--next)->End();
}

void FindOutside(Context& context, const Track& track, const std::vector<const Box*>& data) {
    uint64_t count = 0;
    const Sample* first = nullptr;
    for (const Sample& sample : context.SamplesOf(track)) {
        // Of a file that was cut off, what follows its end is missing, not misplaced.
        if (sample.size == 0 || IsInside(data, sample) || (context.truncated && sample.End() > context.file.Size()))
            continue;
        if (count++ == 0)
            first = &sample;
    }
    if (count)
        context.Add("offset-outside", first->offset, track.stco.box->Path(),
                    NameOf(track) + ": " + std::to_string(count) + " samples, the first is " +
                        std::to_string(first->number) + " with " + std::to_string(first->size) + " bytes");
}

struct Place {
    uint64_t offset, size;
    uint32_t track, number;
};

void FindOverlaps(Context& context) {
    std::vector<Place> places;
    for (const Track& track : context.movie.tracks) {
        for (const Sample& sample : context.SamplesOf(track)) {
            if (sample.size)
                places.push_back({sample.offset, sample.size, track.trakIndex, sample.number});
        }
    }
    std::stable_sort(places.begin(), places.end(), [](const Place& a, const Place& b) { return a.offset < b.offset; });
    uint64_t count = 0;
    std::string first;
    uint64_t firstOffset = 0;
    for (size_t i = 1; i < places.size(); i++) {
        const Place &a = places[i - 1], &b = places[i];
        // Two tracks may share the same samples.
        if (a.offset + a.size <= b.offset || (a.offset == b.offset && a.size == b.size && a.track != b.track))
            continue;
        if (count++ == 0) {
            first = "sample " + std::to_string(b.number) + " of trak[" + std::to_string(b.track) +
                    "] starts inside sample " + std::to_string(a.number) + " of trak[" + std::to_string(a.track) + "]";
            firstOffset = b.offset;
        }
    }
    if (count)
        context.Add("overlap", firstOffset, "mdat",
                    first + (count > 1 ? "; " + std::to_string(count) + " in all" : ""));
}

void FindInterleaving(Context& context) {
    const Distance widest = WidestDistance(context.movie);
    if (widest.bytes <= inspect::kReadAhead)
        return;
    context.Add(widest.bytes > kTold ? "interleave-told" : "interleave-window", widest.offset, "mdat",
                fmt::format("samples due together at {:.3f} s lie {:.0f} KiB apart", widest.time,
                            static_cast<double>(widest.bytes) / 1024));
}

}  // namespace

void FindPlaceFaults(Context& context) {
    std::vector<const Box*> data;
    for (const Box* box : context.movie.Root().children) {
        if (box->type == "mdat")
            data.push_back(box);
    }
    const size_t before = context.findings.size();
    for (const Track& track : context.movie.tracks)
        FindOutside(context, track, data);
    // Samples that lie nowhere sensible say nothing about their neighbours.
    if (context.findings.size() == before) {
        FindOverlaps(context);
        FindInterleaving(context);
    }
}

}  // namespace kivmp4::check
