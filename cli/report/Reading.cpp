// The reads that a player's device gets while the library opens, plays, seeks and winds.
#include <fmt/format.h>

#include "print/Text.h"
#include "report/Pictures.h"

namespace kivmp4::report {

namespace {

using render::Unit;

constexpr size_t kMostRuns = 2000;  // in one plot

/// Reads of one cause, each of which starts where the one before ends.
struct Run {
    cli::Cause cause;
    double start, end;  // seconds since the phase has begun
    uint64_t offset, bytes;
};

std::vector<Run> RunsOf(const cli::TraceResult& trace, size_t phase, double begin) {
    std::vector<Run> runs;
    for (const cli::TracedRead& read : trace.reads) {
        if (read.phase != phase)
            continue;
        const double start = read.start - begin, end = start + read.duration;
        const bool follows =
            !runs.empty() && runs.back().offset + runs.back().bytes == read.offset && runs.back().cause == read.cause;
        if (follows) {
            runs.back().end = end;
            runs.back().bytes += read.size;
        } else if (runs.size() < kMostRuns) {
            runs.push_back({read.cause, start, end, read.offset, read.size});
        }
    }
    return runs;
}

const char* Title(const std::string& phase) {
    return phase == "open" ? "opening" : phase == "play" ? "playing" : phase == "seek" ? "seeking" : "winding";
}

render::Plot PhasePlot(const cli::Phase& phase, const std::vector<Run>& runs, uint64_t reads) {
    double low = 0, high = 1, end = std::max(phase.duration, 1e-3);
    for (size_t i = 0; i < runs.size(); i++) {
        low = i ? std::min(low, static_cast<double>(runs[i].offset)) : static_cast<double>(runs[i].offset);
        high = std::max(high, static_cast<double>(runs[i].offset + runs[i].bytes));
        end = std::max(end, runs[i].end);
    }
    render::Plot plot(std::string("Reads while ") + Title(phase.name), {Unit::Time, 0, end},
                      {runs.empty() ? Unit::None : Unit::Bytes, low, high + std::max(1.0, (high - low) * 0.08)}, 130);
    plot.Title(fmt::format("{}: {} in {:.3f} s{}", Title(phase.name), cli::Count(reads, "read"), phase.duration,
                           runs.size() == kMostRuns ? ", not all drawn" : ""));
    struct Kind {
        cli::Cause cause;
        size_t colour;
        const char* text;
    };
    for (const auto& [cause, colour, text] : {Kind{cli::Cause::Ahead, 0, "ahead"}, Kind{cli::Cause::Jump, 1, "jump"},
                                              Kind{cli::Cause::Raw, 2, "on demand"}}) {
        plot.Legend(render::ColourOf(colour), text);
        std::vector<render::Point> strokes;
        for (const Run& run : runs) {
            if (run.cause != cause)
                continue;
            strokes.push_back({run.start, static_cast<double>(run.offset)});
            strokes.push_back({run.end, static_cast<double>(run.offset + run.bytes)});
        }
        plot.Strokes(render::ColourOf(colour), strokes);
    }
    return plot;
}

// What there is to see in it.
std::string Verdict(const cli::TraceResult& trace, const cli::TraceOptions& options) {
    std::string verdict;
    for (size_t i = 0; i < trace.phases.size(); i++) {
        const cli::Phase& phase = trace.phases[i];
        const cli::Totals totals = cli::TotalsOf(trace, i);
        if (phase.name == "open")
            verdict = fmt::format("Opening reads {} of index in {}, which takes {:.2f} s. ",
                                  cli::FormatBytes(totals.bytes), cli::Count(totals.reads, "piece"), phase.duration);
        if (phase.name == "play")
            verdict += fmt::format("{:.3g} s of film are read in {:.2f} s.", options.play, phase.duration);
    }
    return verdict;
}

}  // namespace

Picture ReadingPicture(const cli::TraceResult& trace, const cli::TraceOptions& options) {
    Picture picture{
        "reading", "What the device has to read",
        fmt::format(
            "A trial on a device that takes {:g} ms for each request and sends {:g} MB a second: opening the file, "
            "playing {:.3g} s of it, seeking {} times, fast forward over {} key frames. Each stroke is a stretch "
            "that was read without a gap: across the time that it took, upward its place in the file. It was read "
            "ahead, after a jump, or on demand while the player waited.",
            options.device.latency, options.device.bandwidth, options.play, options.seeks, options.steps),
        Verdict(trace, options)};
    double begin = 0;
    for (size_t i = 0; i < trace.phases.size(); i++) {
        picture.plots.push_back(PhasePlot(trace.phases[i], RunsOf(trace, i, begin), cli::TotalsOf(trace, i).reads));
        begin += trace.phases[i].duration;
    }
    return picture;
}

}  // namespace kivmp4::report
