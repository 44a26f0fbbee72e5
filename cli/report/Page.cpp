// A report as one page: what stands out, pictures, tables. It needs neither network nor scripts to be read.
#include "report/Page.h"

#include <fmt/format.h>

#include <map>
#include <utility>

#include "print/Text.h"

namespace kivmp4::report {

namespace {

using check::Severity;
using render::Markup;

constexpr size_t kMostBoxes = 2000;
constexpr size_t kMostFindings = 500;
constexpr size_t kMostTracks = 200;

/// Rows of cells; texts are HTML.
class Table {
public:
    explicit Table(const std::vector<std::string>& heads) {
        html = "<div class=\"scroll\"><table>\n<tr>";
        for (const std::string& head : heads)
            html += "<th>" + head + "</th>";
        html += "</tr>\n";
    }
    void Begin() { html += "<tr>"; }
    void Cell(const std::string& text) { html += "<td>" + text + "</td>"; }
    void Wide(const std::string& text) { html += "<td class=\"wide\">" + text + "</td>"; }
    void Number(const std::string& text) { html += "<td class=\"number\">" + text + "</td>"; }
    void End() { html += "</tr>\n"; }
    std::string Html() const { return html + "</table></div>\n"; }

private:
    std::string html;
};

std::string Seconds(double seconds) { return fmt::format("{:.3f} s", seconds); }

struct Remark {
    std::string kind;  // "error", "warning", "note", "good": a class of the style sheet
    std::string text;  // HTML
};

// Each rule once: the first thing that it finds, and how many more there are.
void AddFindings(const Contents& contents, std::vector<Remark>& remarks) {
    std::map<const check::Rule*, size_t> counts;
    for (const check::Finding& finding : contents.findings)
        counts[finding.rule]++;
    for (const check::Finding& finding : contents.findings) {
        const size_t count = std::exchange(counts[finding.rule], 0);
        if (!count)
            continue;
        const std::string more = count > 1 ? fmt::format(" (and {} more like it)", count - 1) : "";
        remarks.push_back(
            {check::Name(finding.rule->severity), Markup(check::WithPlace(finding)) + more + ". " +
                                                      Markup(check::Hint(finding, contents.source.Name())) + "."});
    }
}

void AddReading(const Contents& contents, std::vector<Remark>& remarks) {
    const cli::TraceResult& trace = *contents.trace;
    for (size_t i = 0; i < trace.phases.size(); i++) {
        const cli::Phase& phase = trace.phases[i];
        const cli::Totals totals = cli::TotalsOf(trace, i);
        const std::string read = cli::FormatBytes(totals.bytes);
        if (phase.name == "open" && phase.duration > 1)
            remarks.push_back(
                {"warning", fmt::format("Opening takes {}: the device has to read {} in {} first "
                                        "(<a href=\"#reading\">what the device has to read</a>).",
                                        Seconds(phase.duration), read, cli::Count(totals.reads, "piece"))});
        if (phase.name != "play")
            continue;
        const double film = contents.traceOptions.play;
        if (phase.duration > film * 0.8)
            remarks.push_back(
                {"warning", fmt::format("Reading {} of film takes {}: this device is too slow for the file "
                                        "(<a href=\"#reading\">what the device has to read</a>).",
                                        Seconds(film), Seconds(phase.duration))});
        if (phase.delivered > 0 && totals.bytes > phase.delivered * 3 / 2)
            remarks.push_back(
                {"warning",
                 fmt::format("A trial reads {} in {} to play {}, {:.1f} times as much: what is played does not lie "
                             "one after the other (<a href=\"#reading\">what the device has to read</a>).",
                             read, cli::Count(totals.reads, "piece"), cli::FormatBytes(phase.delivered),
                             static_cast<double>(totals.bytes) / static_cast<double>(phase.delivered))});
    }
}

// What copies the tracks that are played, and no others.
std::string WithoutIgnored(const Contents& contents) {
    std::string command = "ffmpeg -i " + contents.source.Name();
    for (const Lane& lane : contents.survey.played)
        command += fmt::format(" -map 0:{}", lane.track->trakIndex);
    return command + " -c copy -movflags +faststart played.mp4";
}

std::string RemarksOf(const Contents& contents) {
    std::vector<Remark> remarks;
    if (!contents.refusal.empty())
        remarks.push_back({"error", "The library does not open this file: " + Markup(contents.refusal) + "."});
    AddFindings(contents, remarks);
    const Survey& survey = contents.survey;
    if (survey.IsCrowded())
        remarks.push_back(
            {"warning",
             fmt::format("{} of the file belongs to {} not played, and a player has to read over "
                         "them or jump (<a href=\"#bytes\">whose bytes are in the file</a>). "
                         "{} leaves them out.",
                         Share(static_cast<double>(survey.ignoredBytes), static_cast<double>(survey.FileSize())),
                         IgnoredTracks(survey), Markup(WithoutIgnored(contents)))});
    if (contents.trace)
        AddReading(contents, remarks);
    std::stable_sort(remarks.begin(), remarks.end(), [](const Remark& a, const Remark& b) {
        const auto rank = [](const std::string& kind) { return kind == "error" ? 0 : kind == "warning" ? 1 : 2; };
        return rank(a.kind) < rank(b.kind);
    });
    if (remarks.empty())
        remarks.push_back({"good",
                           "Nothing. The tables agree, the tracks lie close together, and reading follows the "
                           "file from start to end."});
    std::string html = "<section id=\"remarks\">\n<h2>What stands out</h2>\n<ul class=\"remarks\">\n";
    for (const Remark& remark : remarks)
        html += fmt::format("<li class=\"{}\">{}</li>\n", remark.kind, remark.text);
    return html + "</ul>\n</section>\n";
}

std::string FactsOf(const Contents& contents) {
    const inspect::Movie& movie = contents.survey.movie;
    std::vector<std::string> facts = {cli::FormatBytes(contents.survey.FileSize())};
    if (contents.view) {
        facts.push_back(cli::FormatTime(contents.view->player.Duration()));
        double played = 0;
        for (const Lane& lane : contents.survey.played)
            played += lane.BitRate();
        facts.push_back(cli::FormatRate(contents.view->BitRate()) +
                        (contents.survey.IsCrowded() ? ", of which " + cli::FormatRate(played) + " are played" : ""));
    }
    if (movie.moov)
        facts.push_back(movie.MoovFirst() ? "index first (fast start)" : "index last");
    if (!movie.majorBrand.empty())
        facts.push_back("brand " + inspect::TypeText(movie.majorBrand));
    facts.push_back(cli::Count(movie.tracks.size(), "track"));
    std::string html = "<p class=\"facts\">";
    for (const std::string& fact : facts)
        html += "<span>" + Markup(fact) + "</span>";
    return html + "</p>\n";
}

std::string PhaseTable(const Contents& contents) {
    if (!contents.trace)
        return "";
    Table table(
        {"phase", "reads", "ahead", "jumps", "on demand", "read", "delivered", "unused", "time", "longest wait"});
    for (size_t i = 0; i < contents.trace->phases.size(); i++) {
        const cli::Phase& phase = contents.trace->phases[i];
        const cli::Totals totals = cli::TotalsOf(*contents.trace, i);
        table.Begin();
        table.Cell(phase.name);
        for (const uint64_t count :
             {totals.reads, totals.Of(cli::Cause::Ahead), totals.Of(cli::Cause::Jump), totals.Of(cli::Cause::Raw)})
            table.Number(std::to_string(count));
        // Opening delivers nothing and needs what it reads.
        const bool opening = phase.name == "open";
        table.Number(cli::FormatBytes(totals.bytes));
        table.Number(opening ? "" : cli::FormatBytes(phase.delivered));
        table.Number(opening ? "" : cli::FormatBytes(totals.Waste(phase)));
        table.Number(Seconds(phase.duration));
        table.Number(fmt::format("{:.1f} ms", phase.longest * 1e3));
        table.End();
    }
    return table.Html();
}

std::string PictureHtml(const Picture& picture, const Contents& contents) {
    std::string html = fmt::format("<section id=\"{}\">\n<h2>{}</h2>\n<p class=\"caption\">{}</p>\n", picture.id,
                                   picture.title, picture.caption);
    if (!picture.verdict.empty())
        html += "<p class=\"verdict\">" + picture.verdict + "</p>\n";
    const bool reading = picture.id == "reading";
    html += reading ? "<div class=\"phases\">\n" : "";
    for (const render::Plot& plot : picture.plots)
        html += "<figure>\n" + plot.Svg() + "</figure>\n";
    html += reading ? "</div>\n" + PhaseTable(contents) : "";
    return html + "</section>\n";
}

// What kind of stream: by the library, or for tracks that it does not describe by the file's own name for it.
std::string CodecText(const inspect::Track& track, const cli::TrackView* view) {
    if (!view || !view->info)
        return track.Entry() ? inspect::TypeText(track.Entry()->type) : "unknown";
    const std::string profile = cli::ProfileName(*view);
    const std::string name = cli::CodecName(*view) + (profile.empty() ? "" : " " + profile);
    return view->IsVideo() ? fmt::format("{}, {}x{}", name, view->info->width, view->info->height)
                           : fmt::format("{}, {} Hz, {}", name, view->info->sampleRate,
                                         cli::Count(cli::Channels(*view), "channel"));
}

const Lane* FindLane(const Survey& survey, const inspect::Track& track) {
    for (const std::vector<Lane>* lanes : {&survey.played, &survey.ignored}) {
        for (const Lane& lane : *lanes) {
            if (lane.track == &track)
                return &lane;
        }
    }
    return nullptr;
}

std::string TracksHtml(const Contents& contents) {
    const auto& tracks = contents.survey.movie.tracks;
    std::string html = "<section id=\"tracks\">\n<h2>Tracks</h2>\n";
    Table table(
        {"track", "place", "ID", "kind", "coded as", "units", "key frames", "lasts", "bit rate", "language", "remark"});
    uint32_t listed = 0;
    for (size_t i = 0; i < std::min(tracks.size(), kMostTracks); i++) {
        const inspect::Track& track = tracks[i];
        const uint32_t number = listed;
        listed += track.refusal.empty();
        const bool seen = contents.view && track.refusal.empty() && number < contents.view->tracks.size();
        const Lane* lane = FindLane(contents.survey, track);
        table.Begin();
        table.Cell(track.refusal.empty() ? fmt::format("#{}", number) : "");
        table.Cell(fmt::format("trak[{}]", track.trakIndex));
        table.Number(std::to_string(track.id));
        table.Cell(KindName(track));
        table.Cell(Markup(CodecText(track, seen ? &contents.view->tracks[number] : nullptr)));
        table.Number(lane ? std::to_string(lane->facts.units) : "");
        table.Number(lane && lane->track->stss ? std::to_string(lane->facts.keys) : lane ? "all" : "");
        table.Number(lane ? cli::FormatTime(lane->facts.duration) : "");
        table.Number(lane ? cli::FormatRate(lane->BitRate()) : "");
        table.Cell(Markup(cli::Escape(track.language)));
        const std::string& remark = track.refusal.empty() ? track.undelivered : track.refusal;
        table.Wide(Markup(remark));
        table.End();
    }
    html += tracks.empty() ? "<p>None.</p>\n" : table.Html();
    if (tracks.size() > kMostTracks)
        html += fmt::format("<p>And {} more.</p>\n", tracks.size() - kMostTracks);
    return html + "</section>\n";
}

std::string FindingsHtml(const Contents& contents) {
    std::string html = "<section id=\"findings\">\n<h2>What kivmp4 check finds</h2>\n";
    if (contents.findings.empty())
        return html + "<p>Nothing.</p>\n</section>\n";
    Table table({"severity", "rule", "at", "box", "what"});
    for (size_t i = 0; i < std::min(contents.findings.size(), kMostFindings); i++) {
        const check::Finding& finding = contents.findings[i];
        const char* severity = check::Name(finding.rule->severity);
        table.Begin();
        table.Cell(fmt::format("<span class=\"severity-{0}\">{0}</span>", severity));
        table.Cell(finding.rule->name);
        table.Number(fmt::format("0x{:x}", finding.offset));
        table.Cell(Markup(finding.path));
        table.Wide(Markup(finding.message));
        table.End();
    }
    html += table.Html();
    if (contents.findings.size() > kMostFindings)
        html += fmt::format("<p>And {} more.</p>\n", contents.findings.size() - kMostFindings);
    return html + "</section>\n";
}

/// The tree of boxes, each with children folded.
class BoxList {
public:
    std::string Html(const inspect::Box& root) {
        AddChildren(root);
        if (left == 0)
            html += fmt::format("<p>Only the first {} boxes are listed; \"kivmp4 boxes\" lists all.</p>\n", kMostBoxes);
        return html;
    }

private:
    void AddChildren(const inspect::Box& parent) {
        for (const inspect::Box* box : parent.children) {
            if (left == 0)
                return;
            left--;
            Add(*box);
        }
    }

    void Add(const inspect::Box& box) {
        std::string line = fmt::format("{} <span class=\"place\">at 0x{:x}, {}</span>",
                                       Markup(inspect::TypeText(box.type)), box.offset, cli::FormatBytes(box.size));
        if (!box.problem.empty())
            line += " <span class=\"problem\">" + Markup(box.problem) + "</span>";
        if (box.children.empty()) {
            html += "<div>" + line + "</div>\n";
            return;
        }
        html += "<details><summary>" + line + "</summary>\n";
        AddChildren(box);
        html += "</details>\n";
    }

    size_t left = kMostBoxes;
    std::string html;
};

std::string BoxesHtml(const Contents& contents) {
    return "<section id=\"boxes\">\n<h2>Boxes</h2>\n<details class=\"top\"><summary>The tree of boxes</summary>\n" +
           BoxList().Html(contents.survey.movie.Root()) + "</details>\n</section>\n";
}

}  // namespace

std::vector<Picture> PicturesOf(const Contents& contents) {
    std::vector<Picture> pictures = InterleavingPictures(contents.survey);
    if (!contents.survey.played.empty())
        pictures.push_back(RatePicture(contents.survey));
    for (Picture& picture : FramePictures(contents.survey))
        pictures.push_back(std::move(picture));
    if (contents.trace)
        pictures.push_back(ReadingPicture(*contents.trace, contents.traceOptions));
    return pictures;
}

std::string Page(const Contents& contents, const std::vector<Picture>& pictures) {
    const std::string title = Markup(contents.title);
    std::string html = fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>{}</title>\n"
        "<style>{}{}</style>\n</head>\n<body>\n<header>\n<h1>{}</h1>\n{}</header>\n",
        title, render::kPlotStyle, kPageStyle, title, FactsOf(contents));
    html += RemarksOf(contents);
    for (const Picture& picture : pictures)
        html += PictureHtml(picture, contents);
    if (!contents.trace && !contents.traceRefusal.empty())
        html += "<section id=\"reading\">\n<h2>What the device has to read</h2>\n<p>The file cannot be played: " +
                Markup(contents.traceRefusal) + ".</p>\n</section>\n";
    html += TracksHtml(contents) + FindingsHtml(contents) + BoxesHtml(contents);
    html += "<footer>Made by kivmp4 " KIVMP4_VERSION ".</footer>\n";
    return html + fmt::format("<script>{}</script>\n</body>\n</html>\n", kPageScript);
}

}  // namespace kivmp4::report
