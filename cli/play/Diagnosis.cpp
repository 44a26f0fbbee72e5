// Why a file, or a part of it, cannot be played: what kivmp4 check finds, for the commands that go through the library.
#include "play/Diagnosis.h"

#include <algorithm>
#include <string_view>

namespace kivmp4::cli {

namespace {

bool IsOf(const check::Finding& finding, std::initializer_list<std::string_view> rules) {
    return std::find(rules.begin(), rules.end(), finding.rule->name) != rules.end();
}

}  // namespace

Diagnosis::Diagnosis(const Source& of) : Diagnosis(of, check::Extent::Tables) {}

Diagnosis::Diagnosis(const Source& of, check::Extent extent) : source(of), findings(check::Check(of.Movie(), extent)) {}

const check::Finding* Diagnosis::First(std::initializer_list<const char*> rules) const {
    for (const char* rule : rules) {
        const auto found =
            std::find_if(findings.begin(), findings.end(), [&](const check::Finding& f) { return IsOf(f, {rule}); });
        if (found != findings.end())
            return &*found;
    }
    return nullptr;
}

std::optional<Failure> Diagnosis::Reason(ExitCode exitCode) const {
    // What explains the others comes first: a file that was cut off lacks its index because of that.
    const check::Finding* cause = First({"not-mp4", "fragmented", "no-moov", "truncated", "box-frame", "no-track",
                                         "table-missing", "table-short", "offset-outside", "nal-length"});
    if (!cause)
        return std::nullopt;
    // What can be saved of a file is for those whom nobody can give it again.
    const std::string hint =
        IsOf(*cause, {"truncated"}) ? "fetch or copy it again" : check::Hint(*cause, source.Name());
    Failure failure = source.Refuse(exitCode, cause->message, hint);
    failure.code = cause->rule->name;
    if (!cause->path.empty()) {
        failure.path = cause->path;
        failure.offset = cause->offset;
    }
    // A missing index and unplayed tracks have causes of their own.
    for (const check::Finding& found : findings) {
        const bool explains = IsOf(*cause, {"no-track"})
                                  ? IsOf(found, {"unsupported-track", "encrypted-track", "disabled-track"})
                                  : IsOf(*cause, {"no-moov"}) && IsOf(found, {"truncated"});
        if (explains)
            failure.message += "; " + check::WithPlace(found);
    }
    return failure;
}

std::vector<check::Finding> Diagnosis::Losses() const {
    std::vector<check::Finding> losses;
    for (const check::Finding& found : findings) {
        if (IsOf(found,
                 {"truncated", "fragmented", "unsupported-track", "encrypted-track", "disabled-track", "edit-ignored"}))
            losses.push_back(found);
    }
    return losses;
}

}  // namespace kivmp4::cli
