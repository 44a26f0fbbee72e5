// What every part of the command throws when it cannot go on, and the exit codes.
#include "print/Failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "print/Json.h"

namespace kivmp4::cli {

namespace {

const char* CodeOf(ExitCode exitCode) {
    switch (exitCode) {
        case kUsage: return "usage";
        case kCannotRead: return "cannot-read";
        case kNotUsable: return "not-usable";
        case kStopped: return "damaged";
        case kCannotWrite: return "cannot-write";
        case kLimit: return "limit";
        case kNotBuilt: return "not-built";
        default: return "failed";
    }
}

}  // namespace

ExitCode Worse(ExitCode a, ExitCode b) {
    constexpr ExitCode kOrder[] = {kUsage, kNotBuilt, kCannotRead, kNotUsable, kStopped, kCannotWrite, kLimit, kFound};
    const auto* first =
        std::find_if(std::begin(kOrder), std::end(kOrder), [&](ExitCode code) { return code == a || code == b; });
    return first == std::end(kOrder) ? kDone : *first;
}

std::string ToText(const Failure& failure) {
    std::string text = "kivmp4: ";
    if (!failure.file.empty())
        text += failure.file + ": ";
    if (failure.offset && !failure.path.empty())
        text += fmt::format("{} at 0x{:x}: ", failure.path, *failure.offset);
    text += failure.message + "\n";
    if (!failure.hint.empty())
        text += "        hint: " + failure.hint + "\n";
    return text;
}

std::string ToJson(const Failure& failure) {
    Json error = {{"code", failure.code.empty() ? CodeOf(failure.exitCode) : failure.code},
                  {"exit", static_cast<int>(failure.exitCode)}};
    if (!failure.file.empty())
        error["file"] = failure.file;
    if (failure.offset)
        error["offset"] = *failure.offset;
    if (!failure.path.empty())
        error["path"] = failure.path;
    error["message"] = failure.message;
    if (!failure.hint.empty())
        error["hint"] = failure.hint;
    // One line, so that it can end a list of lines.
    return Json{{"error", error}}.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace kivmp4::cli
