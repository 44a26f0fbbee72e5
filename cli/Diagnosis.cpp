// Why a file, or a part of it, cannot be played: what kivmp4 check finds, for the commands that go through the library.
#include "Diagnosis.h"

#include <algorithm>
#include <string_view>

#include "Text.h"
#include "check/Check.h"

namespace kivmp4::cli {

namespace {

// A finding about the whole file has no path.
std::string WithPlace(const check::Finding& finding) {
    if (finding.path.empty())
        return finding.message;
    return finding.path + inspect::Format(" at 0x%llx: ", static_cast<unsigned long long>(finding.offset)) +
           finding.message;
}

bool IsOf(const std::string& rule, std::initializer_list<const char*> rules) {
    return std::find(rules.begin(), rules.end(), rule) != rules.end();
}

}  // namespace

Diagnosis::Diagnosis(const std::string& path) {
    constexpr std::string_view kPlaceholder = "FILE";
    inspect::File file;
    if (file.Open(path) != 0)
        return;
    for (const check::Finding& finding : check::Check(file, {})) {
        std::string hint = finding.rule->hint;
        if (const size_t at = hint.find(kPlaceholder); at != std::string::npos)
            hint.replace(at, kPlaceholder.size(), Escape(path));
        findings.push_back({finding.rule->name, WithPlace(finding), hint});
    }
}

const Diagnosis::Found* Diagnosis::First(std::initializer_list<const char*> rules) const {
    for (const char* rule : rules) {
        const auto found =
            std::find_if(findings.begin(), findings.end(), [&](const Found& f) { return f.rule == rule; });
        if (found != findings.end())
            return &*found;
    }
    return nullptr;
}

std::string Diagnosis::Reason(const std::string& otherwise) const {
    // What explains the others comes first: a file that was cut off lacks its index because of that.
    const Found* cause = First({"not-mp4", "fragmented", "no-moov", "truncated", "box-frame", "no-track",
                                "table-missing", "table-short", "offset-outside", "nal-length"});
    if (!cause)
        return otherwise;
    std::string reason = cause->text;
    // A missing index and unplayed tracks have causes of their own.
    const Found* cut = cause->rule == "no-moov" ? First({"truncated"}) : nullptr;
    if (cut)
        reason += "; " + cut->text;
    for (const Found& found : findings) {
        if (cause->rule == "no-track" && IsOf(found.rule, {"unsupported-track", "encrypted-track", "disabled-track"}))
            reason += "; " + found.text;
    }
    // What can be saved of a file is for those whom nobody can give it again.
    return reason + "; hint: " + (cause->rule == "truncated" ? "fetch or copy it again" : cause->hint);
}

std::vector<std::string> Diagnosis::Losses() const {
    std::vector<std::string> lines;
    for (const Found& found : findings) {
        if (IsOf(found.rule,
                 {"truncated", "fragmented", "unsupported-track", "encrypted-track", "disabled-track", "edit-ignored"}))
            lines.push_back(found.text);
    }
    return lines;
}

}  // namespace kivmp4::cli
