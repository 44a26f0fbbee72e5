// kivmp4 check: findings as text for people and as JSON for programs.
#include <algorithm>
#include <set>

#include "check/Check.h"
#include "commands/Commands.h"
#include "play/Source.h"
#include "print/Json.h"
#include "print/Progress.h"
#include "print/Text.h"

namespace kivmp4::cli {

namespace {

using check::Finding;
using check::Severity;
using Findings = std::vector<Finding>;

uint64_t CountOf(const Findings& findings, Severity severity) {
    return static_cast<uint64_t>(std::count_if(
        findings.begin(), findings.end(), [&](const Finding& finding) { return finding.rule->severity == severity; }));
}

std::string Painted(const Output& out, Severity severity) {
    const Paint paint = severity == Severity::Error     ? Paint::Red
                        : severity == Severity::Warning ? Paint::Yellow
                                                        : Paint::Cyan;
    return out.Painted(paint, fmt::format("{:<7}", Name(severity)));
}

std::string Place(const Finding& finding) {
    return (finding.path.empty() ? "" : finding.path + ", ") + fmt::format("at 0x{:x}", finding.offset);
}

void Print(const Settings& settings, const std::string& name, const Findings& findings, Output& out) {
    if (findings.empty()) {
        if (!settings.quiet)
            out.Print("{}: nothing found\n", name);
        return;
    }
    for (const Finding& finding : findings)
        out.Print("{}: {}  {:<17}  {} ({})\n", name, Painted(out, finding.rule->severity), finding.rule->name,
                  finding.message, Place(finding));
    out.Print("{}: {}, {}, {}\n", name, Count(CountOf(findings, Severity::Error), "error"),
              Count(CountOf(findings, Severity::Warning), "warning"), Count(CountOf(findings, Severity::Note), "note"));
    std::set<std::string> told;
    for (const Finding& finding : findings) {
        const std::string hint = check::Hint(finding, name);
        if (told.insert(hint).second)
            out.Print("hint: {}: {}\n", finding.rule->name, hint);
    }
}

Json ToJson(const Source& source, const Findings& findings, bool ok) {
    Json file;
    AddFile(file, source.Path());
    file["ok"] = ok;
    file["findings"] = Json::array();
    for (const Finding& finding : findings)
        file["findings"].push_back({{"severity", Name(finding.rule->severity)},
                                    {"rule", finding.rule->name},
                                    {"offset", finding.offset},
                                    {"path", finding.path},
                                    {"message", finding.message},
                                    {"hint", check::Hint(finding, source.Name())}});
    return file;
}

ExitCode ListRules(const Settings& settings, Output& out) {
    Json list = Json::array();
    for (const check::Rule& rule : check::Rules()) {
        const bool deep = rule.extent == check::Extent::Units;
        if (!settings.json)
            out.Print("{:<22} {:<8} {}{}\n", rule.name, Name(rule.severity), rule.what, deep ? " (--deep)" : "");
        list.push_back({{"rule", rule.name},
                        {"severity", Name(rule.severity)},
                        {"what", rule.what},
                        {"deep", deep},
                        {"hint", rule.hint}});
    }
    if (settings.json)
        out.Write(Dump({{"schema", "kivmp4.check-rules/1"}, {"rules", list}}));
    return kDone;
}

}  // namespace

ExitCode Check(const Settings& settings, const CheckArguments& arguments, Output& out) {
    if (arguments.listRules)
        return ListRules(settings, out);
    if (arguments.files.empty())
        throw Failure{kUsage, "which file?", "try \"kivmp4 help check\""};
    Json files = Json::array();
    // The document for programs is printed at the end, so failures go into it.
    Settings quiet = settings;
    quiet.json = false;
    const ExitCode worst = EachFile(quiet, arguments.files, out, [&](const std::string& path) {
        try {
            const Source source(path);
            Progress progress(settings, "check", arguments.deep ? source.File().Size() : 0);
            const Findings findings =
                check::Check(source.Movie(), arguments.deep ? check::Extent::Units : check::Extent::Tables,
                             [&](uint64_t bytes) { progress.Add(bytes); });
            source.RequireReads();
            progress.Erase();
            const bool fails =
                CountOf(findings, Severity::Error) || (arguments.strict && CountOf(findings, Severity::Warning));
            if (settings.json)
                files.push_back(ToJson(source, findings, !fails));
            else
                Print(settings, source.Name(), findings, out);
            return fails ? kFound : kDone;
        } catch (const Failure& failure) {
            if (settings.json)
                files.push_back(Json::parse(ToJson(failure)));
            throw;
        }
    });
    if (settings.json)
        out.Write(Dump({{"schema", "kivmp4.check/1"}, {"files", files}}));
    return worst;
}

}  // namespace kivmp4::cli
