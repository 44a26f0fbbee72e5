// kivmp4: shows what the library makes of an MP4 file. Arguments and exit codes.
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>

#include "CheckCommand.h"
#include "Commands.h"
#include "Failure.h"
#include "Text.h"

namespace {

using namespace kivmp4::cli;

constexpr char kExamples[] =
    "Examples:\n"
    "  kivmp4 info clip.mp4\n"
    "  kivmp4 packets clip.mp4 --track 0 --count 10\n"
    "  kivmp4 extract clip.mp4 -o tracks\n"
    "  kivmp4 keys clip.mp4 --backward\n"
    "  kivmp4 seek clip.mp4 12.5 1:02:03.5 90000t 50%\n"
    "  kivmp4 check *.mp4\n"
    "  kivmp4 boxes clip.mp4 --path 'moov/**/stts' --entries 5\n"
    "\n"
    "Exit codes: 0 done, 1 check found errors, 2 wrong usage, 3 cannot read or write, 4 not a usable MP4 file, 5 "
    "stopped before the end.";

using Command = void (*)(Player&, const Options&, Output&);

struct Arguments {
    std::string file;
    int32_t logLevel = 0;  // failures are told in the command's own words
    std::vector<std::string> times;
    Options options;
    Command command = nullptr;
    std::function<Answer()> inspection;  // of the commands that do not go through the library
};

CLI::App* AddCommand(CLI::App& app, Arguments& arguments, const char* name, const char* what, Command command) {
    CLI::App* added = app.add_subcommand(name, what);
    added->fallthrough();
    added->add_option("FILE", arguments.file, "MP4 file to read")->required();
    added->callback([&arguments, command] { arguments.command = command; });
    return added;
}

void AddTrack(CLI::App* command, Arguments& arguments) {
    command->add_option("--track", arguments.options.track, "this track only")->type_name("N");
}

void Describe(CLI::App& app, Arguments& arguments) {
    app.require_subcommand(1);
    app.set_version_flag("--version", "kivmp4 " KIVMP4_VERSION);
    app.add_option("--log", arguments.logLevel,
                   "what the library reports: 0 nothing, 1 errors, 2 warnings too, "
                   "3 only the H.264 analysis, 4 everything")
        ->check(CLI::Range(0, 4))
        ->type_name("LEVEL")
        ->capture_default_str();
    app.footer(kExamples);

    AddCommand(app, arguments, "info", "Describe the file and its tracks", Info);

    CLI::App* packets = AddCommand(app, arguments, "packets", "List the units in the order of delivery", Packets);
    AddTrack(packets, arguments);
    packets->add_option("--count", arguments.options.count, "stop after N units")
        ->check(CLI::NonNegativeNumber)
        ->type_name("N");

    CLI::App* extract = AddCommand(app, arguments, "extract", "Write each track to a file of its own", Extract);
    AddTrack(extract, arguments);
    extract->add_option("-o,--output", arguments.options.directory, "directory to write to, made if missing")
        ->required()
        ->type_name("DIR");

    CLI::App* keys = AddCommand(app, arguments, "keys", "Step through the key frames", Keys);
    keys->add_flag("--backward", arguments.options.backward, "from the last to the first");

    CLI::App* seek = AddCommand(app, arguments, "seek", "Jump to each time and tell where each track lands", Seek);
    seek->add_option("TIME", arguments.times, "seconds (12.5), m:ss, h:mm:ss.mmm, ticks (90000t) or a share (50%)")
        ->required();

    AddCheck(app, arguments.inspection);
    AddBoxes(app, arguments.inspection);
}

// Unlike the library's own checks this runs before any file is opened.
void ParseTimes(Arguments& arguments) {
    for (const std::string& text : arguments.times) {
        auto time = ParseTime(text);
        if (!time)
            throw Failure{kUsage, "\"" + Escape(text) + "\" is not a time; write 12.5, 1:02, 1:02:03.5, 90000t or 50%"};
        arguments.options.times.push_back(*time);
    }
}

int Tell(const Answer& answer, Output& out) {
    out.Print("%s", answer.out.c_str());
    out.Finish();
    std::fputs(answer.err.c_str(), stderr);
    return answer.exitCode;
}

/// @return the exit code
int Run(int argc, char** argv) {
    CLI::App app("Shows what the KivMp4 library makes of an MP4 file.", "kivmp4");
    Arguments arguments;
    Describe(app, arguments);
    Output out;
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        out.Print("%s", app.help().c_str());
        out.Finish();
        return kDone;
    } catch (const CLI::CallForVersion& version) {
        out.Print("%s\n", version.what());
        out.Finish();
        return kDone;
    } catch (const CLI::ParseError& error) {
        throw Failure{kUsage, Escape(error.what()) + "; \"kivmp4 --help\" shows how to call it"};
    }
    if (arguments.inspection)
        return Tell(arguments.inspection(), out);
    ParseTimes(arguments);

    Player player(arguments.file, arguments.logLevel);
    try {
        arguments.command(player, arguments.options, out);
    } catch (const Failure&) {
        out.Finish();
        throw;
    }
    out.Finish();
    return kDone;
}

}  // namespace

int main(int argc, char** argv) {
    // A reader that goes away shows as a failed write.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return Run(argc, argv);
    } catch (const Failure& failure) {
        if (!failure.message.empty())
            std::fprintf(stderr, "kivmp4: %s\n", failure.message.c_str());
        return failure.exitCode;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kivmp4: %s\n", Escape(error.what()).c_str());
        return kCannotRead;
    }
}
