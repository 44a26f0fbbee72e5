// Bits a second of each track, sizes of pictures, and groups of pictures over time.
#include <fmt/format.h>

#include <cmath>

#include "print/Text.h"
#include "report/Pictures.h"

namespace kivmp4::report {

namespace {

using render::Plot;
using render::Unit;

constexpr double kMostSeconds = 200000;  // two days and more; forged times may last for centuries
constexpr size_t kVideos = 4;
constexpr size_t kMostDots = 120;  // more of them would hide each other

double Greatest(const std::vector<double>& values) {
    double greatest = 0;
    for (const double value : values)
        greatest = std::max(greatest, value);
    return greatest;
}

// One column a second, or a longer stretch in what lasts for days.
Columns SecondsOf(const Survey& survey) {
    const double end = std::ceil(std::max(1.0, survey.duration));
    return {0, end, static_cast<size_t>(std::min(end, kMostSeconds))};
}

Plot RatePlot(const Survey& survey, const Lane& lane) {
    const Columns seconds = SecondsOf(survey);
    std::vector<double> bits(seconds.count);
    ForEachSample(lane, [&](const inspect::Sample& sample) {
        bits[seconds.Of(lane.Time(sample))] += static_cast<double>(sample.size) * 8 / seconds.Width();
    });
    // Each step is a whole number of seconds.
    const size_t width = (seconds.count + kColumns - 1) / kColumns, count = (seconds.count + width - 1) / width;
    render::Series highest{lane.colour, "highest second", std::vector<double>(count), Unit::Rate};
    render::Series mean{lane.colour, lane.name, std::vector<double>(count), Unit::Rate};
    for (size_t i = 0; i < bits.size(); i++) {
        const size_t step = i / width;
        highest.values[step] = std::max(highest.values[step], bits[i]);
        mean.values[step] += bits[i] / static_cast<double>(std::min(width, bits.size() - step * width));
    }
    const double most = Greatest(highest.values), average = lane.BitRate();
    Plot plot("Bit rate of " + lane.name, {Unit::Time, 0, seconds.Width() * static_cast<double>(count * width)},
              {Unit::Rate, 0, std::max({most, average, 1.0}) * 1.15}, 110);
    plot.Title(fmt::format("{}: {}, at most {}", lane.name, cli::FormatRate(average), cli::FormatRate(most)));
    if (width > 1)
        plot.Area(highest, true);
    plot.Area(mean);
    plot.Rule(render::kInk, average, "average");
    return plot;
}

struct Group {
    double start, length;  // seconds
};

std::vector<Group> GroupsOf(const Lane& lane) {
    std::vector<Group> groups;
    double end = 0;
    ForEachSample(lane, [&](const inspect::Sample& sample) {
        const double time = static_cast<double>(sample.dts) / lane.track->timescale + lane.delay;
        end = time + static_cast<double>(sample.duration) / lane.track->timescale;
        if (!sample.key)
            return;
        if (!groups.empty())
            groups.back().length = time - groups.back().start;
        groups.push_back({time, 0});
    });
    if (!groups.empty())
        groups.back().length = end - groups.back().start;
    return groups;
}

// Key frames are many times as large as what lies between them.
Plot SizePlot(const Survey& survey, const Lane& lane) {
    const Columns columns = ColumnsFor(survey, lane);
    const size_t count = columns.count;
    const bool marked = bool(lane.track->stss);
    render::Series sizes{lane.colour, marked ? "between key frames" : "picture", std::vector<double>(count),
                         Unit::Bytes};
    render::Series keys{render::kWarn, "key frame", std::vector<double>(count, -1), Unit::Bytes};
    ForEachSample(lane, [&](const inspect::Sample& sample) {
        double& largest = (marked && sample.key ? keys : sizes).values[columns.Of(lane.Time(sample))];
        largest = std::max(largest, static_cast<double>(sample.size));
    });
    Plot plot("Sizes of the pictures of " + lane.name, {Unit::Time, 0, survey.duration},
              {Unit::Bytes, 0, std::max({1.0, Greatest(sizes.values), Greatest(keys.values)}) * 1.15}, 160);
    plot.Legend(lane.colour, lane.name);
    plot.Area(sizes);
    if (marked)
        plot.Legend(render::kWarn, cli::Count(lane.facts.keys, "key frame"));
    if (lane.facts.keys > kMostDots) {
        plot.Steps(keys);
    } else if (marked) {
        std::vector<render::Point> dots;
        for (size_t column = 0; column < count; column++) {
            if (keys.values[column] >= 0)
                dots.push_back({columns.Middle(column), keys.values[column]});
        }
        plot.Dots(render::kWarn, dots);
    }
    return plot;
}

Plot GroupPlot(const Survey& survey, const Lane& lane, const std::vector<Group>& groups) {
    const Columns columns{0, survey.duration, 2 * kColumns};
    render::Series lengths{lane.colour, "to the next key frame", std::vector<double>(columns.count), Unit::Time};
    double longest = 0;
    std::vector<render::Point> starts;
    size_t filled = 0;  // groups follow each other, so no column is looked at twice in vain
    for (const Group& group : groups) {
        longest = std::max(longest, group.length);
        const size_t first = columns.Of(group.start);
        const size_t last = std::max(first, columns.Of(group.start + group.length - columns.Width() / 2));
        // Wide bars have a gap between them.
        const size_t end = last - first > 4 ? last : last + 1;
        for (size_t column = std::max(first, std::min(filled, last)); column < end; column++)
            lengths.values[column] = std::max(lengths.values[column], group.length);
        filled = last;
        if (starts.empty() || columns.Of(starts.back().x) != first)
            starts.push_back({group.start, 0});
    }
    Plot plot("Groups of pictures of " + lane.name, {Unit::Time, 0, survey.duration},
              {Unit::Time, 0, std::max(longest, 1e-3) * 1.25}, 110);
    plot.Title(fmt::format("{}: {}, {:.3f} s at most", lane.name, cli::Count(groups.size(), "group"), longest));
    plot.Area(lengths);
    if (groups.size() <= kMostDots) {
        std::vector<render::Point> strokes;
        for (const render::Point& start : starts) {
            strokes.push_back({start.x, 0});
            strokes.push_back({start.x, longest * 0.2});
        }
        plot.Strokes(render::kWarn, strokes);
    }
    return plot;
}

}  // namespace

Picture RatePicture(const Survey& survey) {
    Picture picture{
        "rate", "Bit rate over time",
        "Bits a second of each track, in steps of one second; in long films a step shows the mean of "
        "several seconds, and the pale area the highest one of them. Each track has a scale of its own; above it "
        "stand its average and its highest second.",
        ""};
    for (const Lane* lane : survey.Drawn())
        picture.plots.push_back(RatePlot(survey, *lane));
    return picture;
}

std::vector<Picture> FramePictures(const Survey& survey) {
    Picture sizes{"sizes", "Sizes of the pictures", "The largest picture of each moment; key frames are drawn apart.",
                  ""};
    Picture groups{
        "groups", "Key frames",
        "The height of each bar is the time from one key frame to the next one, and the mark at its foot the "
        "key frame. Fast forward goes from mark to mark, and a seek lands on one.",
        ""};
    for (const Lane& lane : survey.played) {
        if (!lane.IsVideo() || sizes.plots.size() == kVideos)
            continue;
        sizes.plots.push_back(SizePlot(survey, lane));
        if (!lane.track->stss) {
            groups.verdict += lane.name + ": every picture is a key frame. ";
            continue;
        }
        const std::vector<Group> of = GroupsOf(lane);
        groups.plots.push_back(GroupPlot(survey, lane, of));
        if (of.size() == 1 && lane.Duration() > 10)
            groups.verdict +=
                lane.name + " has one key frame only: seeking goes back to the start, and winding does not work. ";
    }
    if (sizes.plots.empty())
        return {};
    return {std::move(sizes), std::move(groups)};
}

}  // namespace kivmp4::report
