// kivmp4 sheet: a contact sheet of key frames, reached by the steps that a player winds with.
#include "commands/Commands.h"

#ifdef KIVMP4_HAS_SHEET
#include <algorithm>
#include <cmath>

#include "play/Player.h"
#include "play/Preamble.h"
#include "play/TrickMode.h"
#include "print/Progress.h"
#include "print/Text.h"
#include "sheet/Canvas.h"

namespace kivmp4::cli {

namespace {

// Width of a pixel over its height, as the track's header wants the picture shown.
double PixelAspect(const CodecInfo& info, const inspect::Track* track) {
    if (!track || !track->width || !track->height || !info.width || !info.height)
        return 1;
    return (static_cast<double>(track->width) * info.height) / (static_cast<double>(track->height) * info.width);
}

/// Steps through key frames and decodes those that lie far enough apart.
class Collector {
public:
    Collector(const Settings& settings, Player& from, const SheetArguments& wanted)
        : player(from),
          arguments(wanted),
          video(from.FirstVideo()),
          track(from.Input().Track(video)),
          aspect(PixelAspect(*from.Track(video), track)),
          decoder(*from.Track(video), Preamble(*from.Track(video), track)),
          progress(settings, "sheet", 0) {
        const auto spread = player.Duration() / arguments.max;
        interval = std::max(spread, arguments.every ? arguments.every->At(player.Duration()) : 0);
        player.SetEnabled(video, true);
        KivMp4InitUnit(player.Handle(), &unit);
    }

    std::vector<Cell> Collect() {
        const TrickMode trickMode(player.Handle());
        // From the start of the track a step back answers the first key frame, wherever it lies.
        if (!player.Step(unit, false)) {
            // Without a table of key frames every frame is one.
            while (cells.size() < arguments.max && player.Next(unit))
                Take();
            return std::move(cells);
        }
        do
            Take();
        while (cells.size() < arguments.max && player.Step(unit, true));
        return std::move(cells);
    }

    const inspect::Track* Track() const { return track; }

private:
    void Take() {
        progress.Add(static_cast<uint64_t>(unit.size));
        if (!cells.empty() && unit.pts < next)
            return;
        next = unit.pts + interval;
        cells.push_back({FormatTime(unit.pts), decoder.Decode(unit, static_cast<int>(arguments.width), aspect)});
    }

    Player& player;
    const SheetArguments& arguments;
    const uint32_t video;
    const inspect::Track* const track;
    const double aspect;
    KeyFrameDecoder decoder;
    Progress progress;
    AccessUnit unit{};
    int64_t interval = 0, next = 0;  // ticks
    std::vector<Cell> cells;
};

// The shape of all cells is that of the first picture; turned by a quarter, it stands upright.
SheetForm FormFor(const Player& player, const SheetArguments& arguments, const std::vector<Cell>& cells,
                  const inspect::Track* track) {
    SheetForm form;
    form.columns = static_cast<int>(arguments.columns);
    form.width = static_cast<int>(arguments.width);
    const auto first = std::find_if(cells.begin(), cells.end(), [](const Cell& cell) { return cell.picture; });
    double shape = first == cells.end() ? 9.0 / 16 : static_cast<double>(first->picture->height) / form.width;
    if (track && track->rotation > 0) {
        form.rotation = track->rotation;
        shape = form.rotation == 180 ? shape : 1 / shape;
    }
    form.mirrored = track && track->mirrored;
    form.height = std::max(1, static_cast<int>(std::lround(form.width * shape)));
    form.title = fmt::format("{}   {}   {}", player.Input().Name(), FormatTime(player.Duration()),
                             FormatBytes(player.Input().File().Size()));
    return form;
}

}  // namespace

ExitCode Sheet(const Settings& settings, const SheetArguments& arguments, Output& out) {
    const Source source(arguments.file);
    Player player(source, settings);
    Collector collector(settings, player, arguments);
    std::vector<Cell> cells = collector.Collect();
    if (cells.empty())
        player.RequireTables();
    const SheetForm form = FormFor(player, arguments, cells, collector.Track());
    const std::string png = DrawSheet(form, cells);
    if (png.empty())
        throw source.Refuse(kLimit, "the sheet is too large", "--width and --max make it smaller");
    Output file(arguments.output, arguments.force);
    file.Write(png);
    file.Finish();
    const auto gaps = std::count_if(cells.begin(), cells.end(), [](const Cell& cell) { return !cell.picture; });
    if (!settings.quiet && !file.IsStandard())
        out.Print("{}: {}{}\n", file.Name(), Count(cells.size(), "picture"),
                  gaps ? fmt::format(", {} of them cannot be decoded", gaps) : "");
    return kDone;
}

}  // namespace kivmp4::cli

#else

namespace kivmp4::cli {

ExitCode Sheet(const Settings&, const SheetArguments&, Output&) {
    throw Failure{kNotBuilt, "this build cannot draw sheets",
                  "build it where libavcodec, libswscale and cairo are (Debian: libavcodec-dev libswscale-dev "
                  "libcairo2-dev)"};
}

}  // namespace kivmp4::cli
#endif
