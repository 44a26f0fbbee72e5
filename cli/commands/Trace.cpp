// kivmp4 trace: each read that a player gets, and how long it waits for units.
#include <cmath>

#include "commands/Commands.h"
#include "play/Trace.h"
#include "print/Json.h"
#include "print/Text.h"

namespace kivmp4::cli {

namespace {

double Rounded(double seconds) { return std::round(seconds * 1e6) / 1e6; }

void PrintPhases(const TraceResult& trace, const TraceOptions& options, Output& out) {
    if (options.device.latency > 0 || options.device.bandwidth > 0)
        out.Print("device: {:g} ms a request{}\n", options.device.latency,
                  options.device.bandwidth > 0 ? fmt::format(", {:g} MB/s", options.device.bandwidth) : "");
    out.Print("{:<5} {:>6} {:>6} {:>6} {:>6} {:>11} {:>11} {:>11} {:>9} {:>9} {:>10} {:>6}\n", "phase", "reads",
              "ahead", "jumps", "raw", "read", "delivered", "unused", "time", "waited", "longest", "stalls");
    for (size_t i = 0; i < trace.phases.size(); i++) {
        const Phase& phase = trace.phases[i];
        const Totals totals = TotalsOf(trace, i);
        out.Print("{:<5} {:>6} {:>6} {:>6} {:>6} {:>11} {:>11} {:>11} {:>7.3f} s {:>7.3f} s {:>7.1f} ms {:>6}\n",
                  phase.name, totals.reads, totals.Of(Cause::Ahead), totals.Of(Cause::Jump), totals.Of(Cause::Raw),
                  FormatBytes(totals.bytes), FormatBytes(phase.delivered), FormatBytes(totals.Waste(phase)),
                  phase.duration, phase.waited, phase.longest * 1e3, phase.stalls);
    }
}

void PrintReads(const TraceResult& trace, Output& out) {
    out.Print("\n{:<5} {:<5} {:>12} {:>9} {:>10} {:>9}\n", "phase", "why", "offset", "size", "at, s", "took, ms");
    for (const TracedRead& read : trace.reads)
        out.Print("{:<5} {:<5} {:>12} {:>9} {:>10.4f} {:>9.3f}\n", trace.phases[read.phase].name, Name(read.cause),
                  read.offset, read.size, read.start, read.duration * 1e3);
}

Json ToJson(const Source& source, const TraceResult& trace, const TraceOptions& options) {
    Json json = {{"schema", "kivmp4.trace/1"}};
    AddFile(json, source.Path());
    json["latency_ms"] = options.device.latency;
    json["bandwidth"] = options.device.bandwidth * 1e6;
    json["phases"] = Json::array();
    for (size_t i = 0; i < trace.phases.size(); i++) {
        const Phase& phase = trace.phases[i];
        const Totals totals = TotalsOf(trace, i);
        json["phases"].push_back({{"phase", phase.name},
                                  {"reads", totals.reads},
                                  {"ahead", totals.Of(Cause::Ahead)},
                                  {"jumps", totals.Of(Cause::Jump)},
                                  {"raw", totals.Of(Cause::Raw)},
                                  {"bytes", totals.bytes},
                                  {"delivered", phase.delivered},
                                  {"unused", totals.Waste(phase)},
                                  {"time", Rounded(phase.duration)},
                                  {"waited", Rounded(phase.waited)},
                                  {"longest_wait", Rounded(phase.longest)},
                                  {"stalls", phase.stalls}});
    }
    json["reads"] = Json::array();
    for (const TracedRead& read : trace.reads)
        json["reads"].push_back({{"phase", trace.phases[read.phase].name},
                                 {"why", Name(read.cause)},
                                 {"pos", read.offset},
                                 {"size", read.size},
                                 {"start", Rounded(read.start)},
                                 {"took", Rounded(read.duration)}});
    return json;
}

}  // namespace

ExitCode Trace(const Settings& settings, const TraceArguments& arguments, Output& out) {
    const Source source(arguments.file);
    // What was asked for, or a little of everything.
    TraceOptions options{.device = {arguments.latency, arguments.bandwidth}, .decode = arguments.decode};
    if (arguments.play || arguments.seeks || arguments.trick) {
        options.play = arguments.play.value_or(0);
        options.seeks = arguments.seeks.value_or(0);
        options.steps = arguments.trick ? options.steps : 0;
    }
    const TraceResult trace = Record(source, settings, options);
    if (settings.json) {
        out.Write(Dump(ToJson(source, trace, options)));
        return kDone;
    }
    PrintPhases(trace, options, out);
    if (arguments.reads)
        PrintReads(trace, out);
    return kDone;
}

}  // namespace kivmp4::cli
