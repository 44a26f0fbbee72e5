// kivmp4 report: a page with pictures of one file.
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <optional>

#include "commands/Commands.h"
#include "play/Trace.h"
#include "print/Text.h"
#include "report/Page.h"

namespace kivmp4::cli {

namespace {

constexpr double kMostPlayed = 10;  // seconds of film
constexpr double kLongestPlay = 1;  // seconds that reading them should take, on a device that is fast enough
constexpr double kMegabit = 8e6;

// Of a film with a high bit rate less is played, so that the report does not take long.
TraceOptions OptionsFor(const ReportArguments& arguments, const report::Survey& survey) {
    TraceOptions options{.device = {arguments.latency, arguments.bandwidth}};
    double rate = 0;
    for (const report::Lane& lane : survey.played)
        rate += lane.BitRate();
    options.play = kMostPlayed;
    if (arguments.bandwidth > 0 && rate > 0)
        options.play = std::min(kMostPlayed, std::max(1.0, kLongestPlay * arguments.bandwidth * kMegabit / rate));
    return options;
}

void WritePictures(const ReportArguments& arguments, const std::vector<report::Picture>& pictures) {
    std::error_code error;
    std::filesystem::create_directories(arguments.svgDirectory, error);
    if (error)
        throw Failure{kCannotWrite,
                      Escape(arguments.svgDirectory) + ": cannot create the directory: " + error.message()};
    for (const report::Picture& picture : pictures) {
        for (size_t i = 0; i < picture.plots.size(); i++) {
            const std::string number = picture.plots.size() > 1 ? fmt::format("-{}", i) : "";
            Output file(fmt::format("{}/{}{}.svg", arguments.svgDirectory, picture.id, number), arguments.force);
            file.Write(picture.plots[i].File());
            file.Finish();
        }
    }
}

}  // namespace

ExitCode Report(const Settings& settings, const ReportArguments& arguments, Output& out) {
    const Source source(arguments.file);
    const std::vector<check::Finding> findings = check::Check(source.Movie(), check::Extent::Tables);
    source.RequireReads();
    const report::Survey survey(source.Movie());
    const TraceOptions options = OptionsFor(arguments, survey);

    report::Contents contents{arguments.title.empty() ? source.Name() : Escape(arguments.title),
                              source,
                              survey,
                              findings,
                              nullptr,
                              {},
                              nullptr,
                              {},
                              options};
    // A file that cannot be played has most need of a report.
    std::optional<FileView> view;
    std::optional<TraceResult> trace;
    try {
        view.emplace(source, settings);
        contents.view = &*view;
    } catch (const Failure& failure) {
        contents.refusal = failure.message;
    }
    try {
        if (view)
            trace = Record(source, settings, options);
        contents.trace = trace ? &*trace : nullptr;
    } catch (const Failure& failure) {
        contents.traceRefusal = failure.message;
    }
    source.RequireReads();

    const std::vector<report::Picture> pictures = report::PicturesOf(contents);
    Output file(arguments.output, arguments.force);
    file.Write(report::Page(contents, pictures));
    file.Finish();
    if (!arguments.svgDirectory.empty())
        WritePictures(arguments, pictures);
    if (!settings.quiet && !file.IsStandard())
        out.Print("{}: {}, {}\n", file.Name(), Count(pictures.size(), "picture"), Count(findings.size(), "finding"));
    return kDone;
}

}  // namespace kivmp4::cli
