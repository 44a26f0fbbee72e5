// kivmp4: shows what is in MP4 files. Runs the command that the arguments name, and tells what went wrong.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string_view>

#include "CommandLine.h"
#include "commands/Commands.h"
#include "print/Guard.h"
#include "print/Text.h"

namespace {

using namespace kivmp4::cli;

ExitCode Run(Guard& guard, Call& call) {
    guard.SetTimeout(call.settings.timeout);
    Output out(call.settings.colour);
    ExitCode code = kDone;
    try {
        code = call.run(out);
    } catch (const Failure& failure) {
        Tell(call.settings, failure, out);
        code = failure.exitCode;
    }
    if (code != kReaderLeft)
        out.Finish();
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    // A reader that goes away shows as a failed write.
    std::signal(SIGPIPE, SIG_IGN);
    Guard guard;
    Call call;
    try {
        ParseCommandLine(argc, argv, call);
        return Run(guard, call);
    } catch (const Failure& failure) {
        // The arguments, or what is left of standard output, which takes no more.
        if (!failure.message.empty())
            std::fputs(ToText(failure).c_str(), stderr);
        return failure.exitCode;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kivmp4: %s\n", Escape(error.what()).c_str());
        return kLimit;  // memory, in all likelihood
    }
}
