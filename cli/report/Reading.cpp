// The reads that a player's device gets while the library opens, plays, seeks and winds.
#include <fmt/format.h>

#include "Text.h"
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
                      {runs.empty() ? Unit::None : Unit::Bytes, low, std::max(high, low + 1)}, 130);
    plot.Title(fmt::format("{}: {} in {:.3f} s", Title(phase.name), cli::Count(reads, "read"), phase.duration));
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

}  // namespace

Picture ReadingPicture(const cli::TraceResult& trace, const cli::TraceOptions& options) {
    Picture picture{
        "reading", "What the device has to read",
        fmt::format("The library opens the file, plays {:.3g} s of it, seeks {} times and winds over {} key "
                    "frames, on a device that takes {:g} ms for each request and sends {:g} MB a second. Each "
                    "stroke is a stretch that was read without a gap: how long it took, and which part of "
                    "the file it was. The library reads ahead, jumps, or reads on demand while the player "
                    "waits.",
                    options.play, options.seeks, options.steps, options.device.latency, options.device.bandwidth),
        ""};
    double begin = 0;
    for (size_t i = 0; i < trace.phases.size(); i++) {
        const auto reads = std::count_if(trace.reads.begin(), trace.reads.end(),
                                         [i](const cli::TracedRead& read) { return read.phase == i; });
        picture.plots.push_back(PhasePlot(trace.phases[i], RunsOf(trace, i, begin), static_cast<uint64_t>(reads)));
        begin += trace.phases[i].duration;
    }
    return picture;
}

}  // namespace kivmp4::report
