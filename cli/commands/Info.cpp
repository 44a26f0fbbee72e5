// kivmp4 info: what files hold, and what a decoder is told of each track.
#include <cstring>

#include "commands/Info.h"
#include "print/Json.h"

namespace kivmp4::cli {

namespace {

// A file that lacks something is told of, and still is no success for a script.
ExitCode ExitCodeOf(const FileView& file) {
    ExitCode code = kDone;
    for (const check::Finding& loss : file.losses) {
        if (!std::strcmp(loss.rule->name, "truncated"))
            code = Worse(code, kStopped);
        if (!std::strcmp(loss.rule->name, "fragmented"))
            code = Worse(code, kNotUsable);
    }
    return code;
}

}  // namespace

ExitCode Info(const Settings& settings, const InfoArguments& arguments, Output& out) {
    return EachFile(settings, arguments.files, out, [&](const std::string& path) {
        const Source source(path);
        FileView file(source, settings);
        if (arguments.track && *arguments.track >= file.tracks.size())
            throw source.Refuse(kUsage, fmt::format("has no track {}", *arguments.track));
        source.RequireReads();
        if (settings.json)
            out.Write(Dump(InfoJson(file, arguments)));
        else
            PrintInfo(file, arguments, out);
        return ExitCodeOf(file);
    });
}

}  // namespace kivmp4::cli
