// What the commands share: failures told, and one file after the other.
#include "commands/Commands.h"

#include <cstdio>

namespace kivmp4::cli {

void Tell(const Settings& settings, const Failure& failure, Output& out) {
    if (failure.message.empty())
        return;
    if (settings.json)
        out.Write(ToJson(failure));
    std::fputs(ToText(failure).c_str(), stderr);
}

ExitCode EachFile(const Settings& settings, const std::vector<std::string>& files, Output& out,
                  const std::function<ExitCode(const std::string&)>& work) {
    ExitCode worst = kDone;
    for (const std::string& file : files) {
        try {
            worst = Worse(worst, work(file));
        } catch (const Failure& failure) {
            // What the output refuses is no fault of the file.
            if (failure.exitCode == kReaderLeft || failure.exitCode == kCannotWrite)
                throw;
            Tell(settings, failure, out);
            worst = Worse(worst, failure.exitCode);
        }
    }
    return worst;
}

}  // namespace kivmp4::cli
