// Writes findings as text for people and as JSON for programs.
#include "check/Report.h"

#include <algorithm>
#include <set>

namespace kivmp4::check {
namespace {

using inspect::Format;

std::string HintFor(const Rule& rule, const std::string& name) {
    std::string hint = rule.hint;
    const size_t at = hint.find("FILE");
    return at == std::string::npos ? hint : hint.replace(at, 4, name);
}

std::string Counted(const std::vector<Finding>& findings, Severity severity) {
    const auto count = std::count_if(findings.begin(), findings.end(),
                                     [&](const Finding& finding) { return finding.rule->severity == severity; });
    return Format("%td %s%s", count, Name(severity), count == 1 ? "" : "s");
}

}  // namespace

std::string Text(const std::string& name, const std::vector<Finding>& findings) {
    if (findings.empty())
        return name + ": nothing found\n";
    std::string text;
    for (const Finding& finding : findings) {
        text +=
            name + Format(": %-7s  %-17s  ", Name(finding.rule->severity), finding.rule->name) + finding.message + " (";
        if (!finding.path.empty())
            text += finding.path + ", ";
        text += Format("at 0x%llx)\n", static_cast<unsigned long long>(finding.offset));
    }
    text += name + ": " + Counted(findings, Severity::Error) + ", " + Counted(findings, Severity::Warning) + ", " +
            Counted(findings, Severity::Note) + "\n";
    std::set<std::string> told;
    for (const Finding& finding : findings) {
        const std::string hint = HintFor(*finding.rule, name);
        if (told.insert(hint).second)
            text += "hint: " + std::string(finding.rule->name) + ": " + hint + "\n";
    }
    return text;
}

nlohmann::ordered_json Json(const std::string& name, const std::vector<Finding>& findings) {
    nlohmann::ordered_json file = {
        {"file", name}, {"ok", !Fails(findings, false)}, {"findings", nlohmann::ordered_json::array()}};
    for (const Finding& finding : findings)
        file["findings"].push_back({{"severity", Name(finding.rule->severity)},
                                    {"rule", finding.rule->name},
                                    {"offset", finding.offset},
                                    {"path", finding.path},
                                    {"message", finding.message},
                                    {"hint", HintFor(*finding.rule, name)}});
    return file;
}

std::string RulesText() {
    std::string text;
    for (const Rule& rule : Rules())
        text += Format("%-22s %-8s %s%s\n", rule.name, Name(rule.severity), rule.what, rule.deep ? " (--deep)" : "");
    return text;
}

nlohmann::ordered_json RulesJson() {
    auto list = nlohmann::ordered_json::array();
    for (const Rule& rule : Rules())
        list.push_back({{"rule", rule.name},
                        {"severity", Name(rule.severity)},
                        {"what", rule.what},
                        {"deep", rule.deep},
                        {"hint", rule.hint}});
    return list;
}

bool Fails(const std::vector<Finding>& findings, bool strict) {
    return std::any_of(findings.begin(), findings.end(), [&](const Finding& finding) {
        return finding.rule->severity == Severity::Error || (strict && finding.rule->severity == Severity::Warning);
    });
}

}  // namespace kivmp4::check
