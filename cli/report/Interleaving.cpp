// Where the tracks' samples lie in the file, and how far from each other those lie that are due at the same time.
#include <fmt/format.h>

#include <cmath>
#include <limits>

#include "print/Text.h"
#include "print/Time.h"
#include "report/Pictures.h"

namespace kivmp4::report {

namespace {

using render::Axis;
using render::Plot;
using render::Unit;

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
constexpr uint64_t kCloseUp = 1 << 20;  // bytes
constexpr uint32_t kRow = 40;           // pixels

Axis FileAxis(const Survey& survey) { return {Unit::Bytes, 0, std::max(1.0, static_cast<double>(survey.FileSize()))}; }

void AddLegend(Plot& plot, const Survey& survey) {
    for (const Lane* lane : survey.Drawn())
        plot.Legend(lane->colour, lane->name);
}

// One bar of all bytes, cut by whose they are.
Picture BytesPicture(const Survey& survey) {
    const double size = static_cast<double>(survey.FileSize());
    Plot plot("Shares of the file", FileAxis(survey), {}, 28);
    const Columns columns{0, std::max(1.0, size), 1000};
    double end = 0;
    const auto add = [&](render::Colour colour, const std::string& name, uint64_t bytes) {
        std::vector<bool> covered(columns.count);
        const double start = end;
        end = std::min(size, end + static_cast<double>(bytes));
        if (bytes)
            std::fill(covered.begin() + static_cast<std::ptrdiff_t>(columns.Of(start)),
                      covered.begin() + static_cast<std::ptrdiff_t>(columns.Of(end)) + (end >= size), true);
        plot.Spans(colour, 0, 1, covered);
        plot.Legend(colour, fmt::format("{} {}", name, Share(static_cast<double>(bytes), size)));
    };
    for (const Lane* lane : survey.Drawn())
        add(lane->colour, lane->name, lane->facts.readableBytes);
    if (survey.ignoredBytes)
        add(render::kFaint, "not played", survey.ignoredBytes);
    const uint64_t index = survey.movie.moov ? survey.movie.moov->size : 0;
    add(render::kInk, "index", index);

    Picture picture{"bytes", "Whose bytes are in the file", "The whole file, sorted by what its bytes are for.", ""};
    if (survey.IsCrowded())
        picture.verdict = fmt::format(
            "{} of the file belongs to {} not played. They lie between what is played, so a player "
            "reads them for nothing or jumps over them again and again, which takes time on a "
            "card or over a network.",
            Share(static_cast<double>(survey.ignoredBytes), size), IgnoredTracks(survey));
    picture.plots.push_back(std::move(plot));
    return picture;
}

// In each column of time the lowest and the highest place in the file.
void DrawPositions(Plot& plot, const Survey& survey, const Lane& lane) {
    const Columns columns = ColumnsFor(survey, lane);
    render::Series lows{lane.colour, lane.name, std::vector<double>(columns.count, kNone), Unit::Bytes};
    std::vector<double> highs(columns.count, kNone);
    ForEachSample(lane, [&](const inspect::Sample& sample) {
        if (sample.End() > survey.FileSize())
            return;
        const size_t column = columns.Of(lane.Time(sample));
        lows.values[column] = std::fmin(lows.values[column], static_cast<double>(sample.offset));
        highs[column] = std::fmax(highs[column], static_cast<double>(sample.End()));
    });
    if (lane.colour == render::kFaint)
        lows.name.clear();  // nobody points at what is not played
    plot.Ranges(lows, highs);
}

Picture MapPicture(const Survey& survey) {
    Plot plot("Position in the file over time", {Unit::Time, 0, survey.duration}, FileAxis(survey), 260);
    AddLegend(plot, survey);
    if (!survey.ignored.empty())
        plot.Legend(render::kFaint, "not played");
    for (size_t i = 0; i < std::min(kDrawn, survey.ignored.size()); i++)
        DrawPositions(plot, survey, survey.ignored[i]);
    for (const Lane* lane : survey.Drawn())
        DrawPositions(plot, survey, *lane);
    Picture picture{
        "map", "Interleaving: place in the file over time",
        "Each line is a track: which place of the file it has reached at which time of the film. Lines that "
        "lie on each other are read together, with all that lies between; where they part, a player must jump.",
        ""};
    if (survey.played.size() > survey.Drawn().size())
        picture.verdict = fmt::format("Drawn are the first {} of {} played tracks.", kDrawn, survey.played.size());
    picture.plots.push_back(std::move(plot));
    return picture;
}

// Which columns the samples of the lane touch.
void Cover(const Lane& lane, const Columns& columns, std::vector<bool>& covered) {
    ForEachSample(lane, [&](const inspect::Sample& sample) {
        const auto start = static_cast<double>(sample.offset), end = static_cast<double>(sample.End());
        if (sample.size == 0 || end <= columns.low || start >= columns.high)
            return;
        // Samples do not overlap in files that make sense, so together they fill each column a few times at most.
        for (size_t column = columns.Of(start); column <= columns.Of(end - 1); column++)
            covered[column] = true;
    });
}

// Where the tracks are furthest apart, or the middle of the film.
uint64_t CloseUpStart(const Survey& survey) {
    const Lane& lane = survey.played[0];
    uint64_t start = survey.widest.offset;
    if (survey.widest.bytes <= inspect::kReadAhead) {
        uint32_t number = 0;
        ForEachSample(lane, [&](const inspect::Sample& sample) {
            if (number++ == lane.facts.units / 2)
                start = sample.offset;
        });
    }
    const uint64_t last = survey.FileSize() > kCloseUp ? survey.FileSize() - kCloseUp : 0;
    return std::min(start, last);
}

Picture CloseUpPicture(const Survey& survey) {
    const uint64_t start = CloseUpStart(survey), size = std::min(kCloseUp, survey.FileSize());
    const Columns columns{static_cast<double>(start), static_cast<double>(start + size), 1000};
    const auto drawn = survey.Drawn();
    const size_t rows = drawn.size() + !survey.ignored.empty();
    Plot plot("A stretch of the file, a row a track", {Unit::Bytes, 0, static_cast<double>(size)},
              {Unit::None, 0, static_cast<double>(rows)}, static_cast<uint32_t>(rows) * kRow);
    const double window = static_cast<double>(std::min(inspect::kReadAhead, size));
    plot.BandUp(0, window, "192 KiB read ahead");
    size_t touched = 0;
    double row = static_cast<double>(rows);
    const auto draw = [&](render::Colour colour, const std::string& name, const std::vector<bool>& covered) {
        row -= 1;
        plot.Spans(colour, row + 0.1, row + 0.55, covered);
        plot.Note(row + 0.55, name);
    };
    for (const Lane* lane : drawn) {
        std::vector<bool> covered(columns.count);
        Cover(*lane, columns, covered);
        touched += static_cast<size_t>(std::count(covered.begin(), covered.end(), true));
        draw(lane->colour, lane->name, covered);
    }
    if (!survey.ignored.empty()) {
        std::vector<bool> covered(columns.count);
        for (const Lane& lane : survey.ignored)
            Cover(lane, columns, covered);
        draw(render::kFaint, fmt::format("not played ({})", cli::Count(survey.ignored.size(), "track")), covered);
    }
    Picture picture{
        "closeup", "Close-up of the interleaving",
        fmt::format("{} of the file from byte {} (0x{:x}) on, to scale: where the samples of each track lie. "
                    "The shaded stretch is as much as is read ahead (192 KiB).",
                    render::Label(static_cast<double>(size), Unit::Bytes), start, start),
        ""};
    if (touched < columns.count / 2)
        picture.verdict = "Less than half of these bytes is for tracks that are played.";
    picture.plots.push_back(std::move(plot));
    return picture;
}

Picture DistancePicture(const Survey& survey) {
    const auto drawn = survey.Drawn();
    const auto fewest = std::min_element(drawn.begin(), drawn.end(),
                                         [](const Lane* a, const Lane* b) { return a->facts.units < b->facts.units; });
    const Columns columns = ColumnsFor(survey, **fewest);
    std::vector<render::Series> ahead;
    ahead.reserve(drawn.size());
    for (const Lane* lane : drawn)
        ahead.push_back({lane->colour, lane->name, std::vector<double>(columns.count, -1), Unit::Bytes});
    std::vector<bool> exceeded(columns.count);
    inspect::WalkByTime(survey.movie, [&](double time, const std::vector<inspect::DueSample>& due) {
        uint64_t low = UINT64_MAX;
        for (const inspect::DueSample& each : due)
            low = std::min(low, each.sample.offset);
        const size_t column = columns.Of(time);
        for (const inspect::DueSample& each : due) {
            const uint64_t distance = each.sample.offset - low;
            if (distance > inspect::kReadAhead)
                exceeded[column] = true;
            for (size_t i = 0; i < drawn.size(); i++) {
                double& value = ahead[i].values[column];
                if (drawn[i]->track == each.track)
                    value = std::max(value, static_cast<double>(distance));
            }
        }
    });
    const double widest = static_cast<double>(std::max(survey.widest.bytes, inspect::kReadAhead));
    Plot plot("How far each track lies ahead in the file", {Unit::Time, 0, survey.duration},
              {Unit::Bytes, 0, widest * 1.2}, 200);
    AddLegend(plot, survey);
    plot.BandAcross(0, static_cast<double>(inspect::kReadAhead), "192 KiB are read ahead");
    for (const render::Series& series : ahead)
        plot.Steps(series);
    std::vector<render::Point> marks;
    for (size_t column = 0; column < columns.count; column++) {
        if (exceeded[column])
            marks.push_back({columns.Middle(column), widest * 1.12});
    }
    plot.Dots(render::kWarn, marks);
    Picture picture{"distance", "Distance between the tracks",
                    "At each time, how far in the file a track lies past the one that comes first. Inside the shaded "
                    "band all that is due is read in one go. Dots at the top mark times at which it is not.",
                    ""};
    if (survey.widest.bytes > inspect::kReadAhead)
        picture.verdict = fmt::format(
            "At {} the tracks are {} apart: more than the library holds. The player gets one track long "
            "before the other, and has to keep it meanwhile; if it cannot, sound or picture stops.",
            cli::FormatTime(inspect::ToTicks(survey.widest.time)), cli::FormatBytes(survey.widest.bytes));
    else
        picture.verdict = fmt::format(
            "At most {}, at {}: {}.", cli::FormatBytes(survey.widest.bytes),
            cli::FormatTime(inspect::ToTicks(survey.widest.time)),
            survey.IsCrowded() ? "close together, but for what is not played between them" : "well interleaved");
    picture.plots.push_back(std::move(plot));
    return picture;
}

}  // namespace

std::string Share(double part, double whole) {
    return fmt::format("{:.{}f} %", whole > 0 ? part / whole * 100 : 0, part > 0 && part < whole * 0.1 ? 1 : 0);
}

std::vector<Picture> InterleavingPictures(const Survey& survey) {
    std::vector<Picture> pictures;
    if (survey.played.empty())
        return pictures;
    pictures.push_back(BytesPicture(survey));
    pictures.push_back(MapPicture(survey));
    pictures.push_back(CloseUpPicture(survey));
    if (survey.played.size() > 1)
        pictures.push_back(DistancePicture(survey));
    return pictures;
}

}  // namespace kivmp4::report
