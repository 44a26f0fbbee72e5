// The command line: which command with which arguments.
#include "CommandLine.h"

#include <KivMp4.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>

#include "Completion.h"
#include "Help.h"
#include "commands/Commands.h"
#include "print/Text.h"

namespace kivmp4::cli {

namespace {

constexpr char kTimes[] = "times are written as 90, 90.5, 1:30, 1:02:03.5, 8100000t (1/90000 s), 50% or end";

// @return null for a name that no command has
CLI::App* FindCommand(CLI::App& app, const std::string& name) {
    const auto found = app.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

TimeArgument TimeFrom(const std::string& text) {
    const auto time = ParseTime(text);
    if (!time)
        throw Failure{kUsage, "\"" + Escape(text) + "\" is not a time", kTimes};
    return *time;
}

/// The commands with their arguments, which live as long as the call.
class Commands {
public:
    explicit Commands(Call& to)
        : call(to),
          app("Shows what is in MP4 files, what is wrong with them, and what a player "
              "makes of them.",
              "kivmp4") {
        app.formatter(MakeHelpFormatter());
        app.require_subcommand(1);
        app.set_help_flag("-h,--help", "print this help");
        app.set_version_flag("-V,--version", "kivmp4 " KIVMP4_VERSION, "print the version");
        AddSettings();
        AddInfo();
        AddPackets();
        AddKeys();
        AddSeek();
        AddExtract();
        AddBoxes();
        AddCheck();
        AddHash();
        AddDiff();
        AddReport();
        AddSheet();
        AddTrace();
        AddCompletion();
        AddHelp();
        app.footer(
            "Exit codes: 0 done, 1 check or diff found something, 2 wrong usage, 3 cannot read, 4 not a usable MP4 "
            "file,\n"
            "5 damaged, 6 cannot write, 7 limit reached, 8 not in this build.");
    }
    CLI::App& App() { return app; }

private:
    // A command runs with its arguments, which `options` may add to.
    template <typename Arguments>
    CLI::App* Add(const char* name, const char* what, ExitCode (*command)(const Settings&, const Arguments&, Output&),
                  std::shared_ptr<Arguments>& arguments) {
        arguments = std::make_shared<Arguments>();
        CLI::App* added = app.add_subcommand(name, what);
        added->fallthrough();
        added->callback([this, command, arguments] {
            call.run = [settings = &call.settings, command, arguments](Output& out) {
                return command(*settings, *arguments, out);
            };
        });
        return added;
    }

    static void AddFile(CLI::App* command, std::string& file) {
        command->add_option("FILE", file, "MP4 file to read; - for standard input, if that is a regular file")
            ->required();
    }
    static void AddFiles(CLI::App* command, std::vector<std::string>& files, bool required = true) {
        command->add_option("FILE", files, "MP4 files to read")->required(required);
    }
    static void AddTracks(CLI::App* command, std::vector<uint32_t>& tracks) {
        command->add_option("-t,--track", tracks, "these tracks only, as info numbers them")
            ->delimiter(',')
            ->type_name("N[,N]");
    }
    static void AddTime(CLI::App* command, const char* name, std::optional<TimeArgument>& time, const char* what) {
        command
            ->add_option_function<std::string>(
                name, [&time](const std::string& text) { time = TimeFrom(text); }, what)
            ->type_name("TIME");
    }

    static void AddDevice(CLI::App* command, double& latency, double& bandwidth, const std::string& usualLatency,
                          const std::string& usualBandwidth) {
        const auto number = CLI::NonNegativeNumber.description("");
        command->add_option("--latency", latency, "what the device takes for each request" + usualLatency)
            ->check(number)
            ->type_name("MS");
        command->add_option("--bandwidth", bandwidth, "at which it sends" + usualBandwidth)
            ->check(number)
            ->type_name("MB/S");
    }

    void AddSettings() {
        Settings& settings = call.settings;
        app.add_flag("-q,--quiet", settings.quiet, "nothing but failures on standard error");
        app.add_flag_function(
            "-v,--verbose",
            [&settings](int64_t count) { settings.logLevel = count == 1 ? KIVMP4_LOG_ERRORS : KIVMP4_LOG_ALL; },
            "what the library reports: its errors, with -vv everything");
        app.add_flag("--json", settings.json, "for programs");
        const std::map<std::string, Colour> colours = {
            {"auto", Colour::Auto}, {"always", Colour::Always}, {"never", Colour::Never}};
        app.add_option("--color", settings.colour, "auto, always or never")
            ->transform(CLI::CheckedTransformer(colours).description(""))
            ->type_name("WHEN");
        app.add_flag_callback(
            "--no-progress", [&settings] { settings.progress = false; }, "do not show how far long work has come");
        app.add_flag("--stats", settings.stats, "tell at the end how much was read, and how");
        app.add_option("--heap", settings.heap, "the library's own memory (default: by the size of the file)")
            ->transform(CLI::AsSizeValue(false).description(""))
            ->type_name("SIZE");
        app.add_option("--max-memory", settings.memory, "what the library may ask for tables (default: 512M)")
            ->transform(CLI::AsSizeValue(false).description(""))
            ->type_name("SIZE");
        app.add_option("--timeout", settings.timeout, "seconds to wait for a read; 0: for ever (default: 30)")
            ->check(CLI::NonNegativeNumber.description(""))
            ->type_name("SECONDS");
    }

    void AddInfo() {
        std::shared_ptr<InfoArguments> arguments;
        CLI::App* command = Add("info", "Describe files and their tracks", Info, arguments);
        AddFiles(command, arguments->files);
        command->add_option("-t,--track", arguments->track, "this track only")->type_name("N");
        command->add_flag("--config", arguments->config, "the decoder configuration too, in hexadecimal digits");
    }

    void AddPackets() {
        std::shared_ptr<PacketsArguments> arguments;
        CLI::App* command = Add("packets", "List the coded units in the order of the file", Packets, arguments);
        AddFile(command, arguments->file);
        AddTracks(command, arguments->tracks);
        AddTime(command, "--from", arguments->from, "units that are shown at this time or later");
        AddTime(command, "--to", arguments->to, "units that are shown before this time");
        command->add_option("--count", arguments->count, "stop after N units")
            ->check(CLI::NonNegativeNumber.description(""))
            ->type_name("N");
        command->add_flag("--sync", arguments->sync, "key frames only");
        command->add_flag("--hash", arguments->hash, "a CRC-32 of each unit's bytes too");
        command->add_option("--columns", arguments->columns, "which columns to show")
            ->delimiter(',')
            ->type_name("NAME[,NAME]");
        auto* csv = command->add_flag_callback(
            "--csv", [arguments] { arguments->form = Form::Csv; }, "values with commas between them");
        command
            ->add_flag_callback(
                "--ndjson", [arguments] { arguments->form = Form::Lines; }, "one JSON object a line")
            ->excludes(csv);
    }

    void AddKeys() {
        std::shared_ptr<KeysArguments> arguments;
        CLI::App* command = Add("keys", "Step through the key frames", Keys, arguments);
        AddFile(command, arguments->file);
        command->add_flag("--backward", arguments->backward, "from the last to the first");
        command->add_flag("--stats", arguments->stats, "intervals and sizes at the end");
        command->add_flag("--csv", arguments->csv, "values with commas between them");
    }

    void AddSeek() {
        std::shared_ptr<SeekArguments> arguments;
        CLI::App* command = Add("seek", "Jump to times and tell where each track lands", Seek, arguments);
        AddFile(command, arguments->file);
        command
            ->add_option_function<std::vector<std::string>>(
                "TIME",
                [arguments](const std::vector<std::string>& texts) {
                    for (const std::string& text : texts)
                        arguments->times.push_back(TimeFrom(text));
                },
                kTimes)
            ->required();
    }

    void AddExtract() {
        std::shared_ptr<ExtractArguments> arguments;
        CLI::App* command = Add("extract", "Write tracks to files that other programs read", Extract, arguments);
        AddFile(command, arguments->file);
        AddTracks(command, arguments->tracks);
        command->add_flag("--video", arguments->video, "the first video track");
        command->add_flag("--audio", arguments->audio, "the first audio track");
        command
            ->add_option("-o,--output", arguments->output,
                         "file for one track, - for standard output, directory for several")
            ->required()
            ->type_name("OUT");
        command
            ->add_option("--format", arguments->format, "auto, h264, m4v, aac (ADTS), raw or pcm (units as they are)")
            ->check(CLI::IsMember({"auto", "h264", "m4v", "aac", "raw", "pcm"}).description(""))
            ->type_name("FORMAT");
        AddTime(command, "--from", arguments->from, "start here, at the key frame before");
        AddTime(command, "--to", arguments->to, "end here, at the key frame after");
        command->add_flag("--force", arguments->force, "replace files that exist");
    }

    void AddBoxes() {
        std::shared_ptr<BoxesArguments> arguments;
        CLI::App* command = Add("boxes", "Show the tree of boxes", Boxes, arguments);
        AddFile(command, arguments->file);
        command->add_option("--path", arguments->options.path, "only boxes like moov/trak[1]/**/stts")
            ->type_name("PATTERN");
        command->add_option("--depth", arguments->options.depth, "levels below the top to show")->type_name("N");
        command->add_option("--entries", arguments->options.entries, "rows of each table to show")->type_name("N");
        command->add_flag("--hex", arguments->options.hex, "the first bytes of boxes without children");
    }

    void AddCheck() {
        std::shared_ptr<CheckArguments> arguments;
        CLI::App* command = Add("check", "Find what is wrong with files, where, and what to do", Check, arguments);
        AddFiles(command, arguments->files, false);
        command->add_flag("--deep", arguments->deep, "read every unit too");
        command->add_flag("--strict", arguments->strict, "exit with 1 for warnings too");
        command->add_flag("--list-rules", arguments->listRules, "show what is looked for");
    }

    void AddHash() {
        std::shared_ptr<HashArguments> arguments;
        CLI::App* command = Add("hash", "Tell a checksum of each track's units", Hash, arguments);
        AddFiles(command, arguments->files);
        command->add_option("--algorithm", arguments->algorithm, "crc32, md5 or sha256")
            ->check(CLI::IsMember({"crc32", "md5", "sha256"}).description(""))
            ->type_name("NAME");
        command->add_flag("--per-unit", arguments->perUnit, "one for each unit too");
    }

    void AddDiff() {
        std::shared_ptr<DiffArguments> arguments;
        CLI::App* command = Add("diff", "Compare the units of two files", Diff, arguments);
        command->add_option("A", arguments->first, "MP4 file")->required();
        command->add_option("B", arguments->second, "MP4 file to compare it with")->required();
        auto* times = command->add_flag("--times", arguments->onlyTimes, "compare times and key frames only");
        command->add_flag("--payload", arguments->onlyPayload, "compare bytes only")->excludes(times);
    }

    void AddReport() {
        std::shared_ptr<ReportArguments> arguments;
        CLI::App* command = Add("report", "Draw a page with pictures of a file", Report, arguments);
        AddFile(command, arguments->file);
        command->add_option("-o,--output", arguments->output, "HTML file, - for standard output")
            ->required()
            ->type_name("OUT");
        command->add_option("--title", arguments->title, "of the page (default: the file's name)")->type_name("TEXT");
        command->add_option("--svg-dir", arguments->svgDirectory, "each picture as a file of its own too")
            ->type_name("DIR");
        AddDevice(command, arguments->latency, arguments->bandwidth, " (default: 2)", " (default: 20)");
        command->add_flag("--force", arguments->force, "replace files that exist");
    }

    void AddSheet() {
        std::shared_ptr<SheetArguments> arguments;
        CLI::App* command = Add("sheet", "Draw a contact sheet of key frames", Sheet, arguments);
        AddFile(command, arguments->file);
        command->add_option("-o,--output", arguments->output, "PNG file, - for standard output")
            ->required()
            ->type_name("OUT");
        const auto range = [](uint32_t most) { return CLI::Range(1u, most).description(""); };
        command->add_option("--columns", arguments->columns, "pictures in a row (default: 4)")
            ->check(range(100))
            ->type_name("N");
        command->add_option("--width", arguments->width, "of a picture, pixels (default: 320)")
            ->check(range(4096))
            ->type_name("N");
        command->add_option("--max", arguments->max, "pictures at most (default: 24)")
            ->check(range(10000))
            ->type_name("N");
        AddTime(command, "--every", arguments->every, "so far apart at least");
        command->add_flag("--force", arguments->force, "replace a file that exists");
    }

    void AddTrace() {
        std::shared_ptr<TraceArguments> arguments;
        CLI::App* command =
            Add("trace", "Tell what a player's reads look like, and how long it waits", Trace, arguments);
        AddFile(command, arguments->file);
        const auto number = CLI::NonNegativeNumber.description("");
        command->add_option("--play", arguments->play, "play so many seconds of the film")
            ->check(number)
            ->type_name("SECONDS");
        command->add_option("--seeks", arguments->seeks, "seek to N times, spread evenly")
            ->check(number)
            ->type_name("N");
        command->add_flag("--trick", arguments->trick, "wind: ten steps from key frame to key frame");
        AddDevice(command, arguments->latency, arguments->bandwidth, "", "");
        command->add_option("--decode", arguments->decode, "at which the decoder takes units (default: at once)")
            ->check(number)
            ->type_name("MB/S");
        command->add_flag("--reads", arguments->reads, "each read too");
    }

    void AddCompletion() {
        CLI::App* command = app.add_subcommand("completion", "Print a script that completes commands in a shell");
        auto shell = std::make_shared<std::string>();
        command->add_option("SHELL", *shell, "bash, zsh or fish")
            ->required()
            ->check(CLI::IsMember({"bash", "zsh", "fish"}).description(""));
        command->callback([this, shell] {
            call.run = [text = CompletionFor(app, *shell)](Output& out) {
                out.Write(text);
                return kDone;
            };
        });
    }

    void AddHelp() {
        CLI::App* command = app.add_subcommand("help", "Explain a command");
        auto name = std::make_shared<std::string>();
        command->add_option("COMMAND", *name, "which one");
        command->callback([this, name] {
            CLI::App* about = name->empty() ? &app : FindCommand(app, *name);
            if (!about)
                throw Failure{kUsage, "unknown command '" + Escape(*name) + "'", "\"kivmp4 help\" lists them"};
            call.run = [text = HelpOf(*about)](Output& out) {
                out.Write(text);
                return kDone;
            };
        });
    }

    Call& call;
    CLI::App app;
};

std::vector<std::string> OptionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    }
    return names;
}

bool LooksLikeFile(const std::string& word) {
    std::error_code error;
    return word == "-" || word.find_first_of("./") != std::string::npos || std::filesystem::exists(word, error);
}

// The first word that is no option and no option's value. @return arguments.size() without any
size_t FirstWord(CLI::App& app, const std::vector<std::string>& arguments) {
    for (size_t i = 0; i < arguments.size(); i++) {
        if (arguments[i].size() < 2 || arguments[i][0] != '-')
            return i;
        const CLI::Option* option = app.get_option_no_throw(arguments[i]);
        if (option && option->get_items_expected_max() > 0)
            i++;
    }
    return arguments.size();
}

// "kivmp4 FILE" is "kivmp4 info FILE".
void AddImpliedCommand(CLI::App& app, std::vector<std::string>& arguments) {
    const size_t at = FirstWord(app, arguments);
    if (at == arguments.size() || FindCommand(app, arguments[at]))
        return;
    if (LooksLikeFile(arguments[at])) {
        arguments.insert(arguments.begin() + static_cast<std::ptrdiff_t>(at), "info");
        return;
    }
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands({}))
        names.push_back(command->get_name());
    const std::string suggestion = Suggestion(arguments[at], names);
    throw Failure{kUsage, "unknown command '" + Escape(arguments[at]) + "'",
                  suggestion.empty() ? "\"kivmp4 help\" lists the commands" : suggestion};
}

// The command whose arguments are wrong, or the whole.
const CLI::App& Chosen(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : *chosen.front();
}

Failure UsageFailure(const CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& arguments) {
    const CLI::App& chosen = Chosen(app);
    Failure failure{kUsage, Escape(error.what()),
                    "try \"kivmp4 help" + (&chosen == &app ? "" : " " + chosen.get_name()) + "\""};
    if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::ExtrasError))
        return failure;
    std::vector<std::string> names = OptionNames(chosen);
    const std::vector<std::string> common = OptionNames(app);
    names.insert(names.end(), common.begin(), common.end());
    for (const std::string& argument : arguments) {
        const std::string name = argument.substr(0, argument.find('='));
        if (!name.starts_with("--") || std::find(names.begin(), names.end(), name) != names.end())
            continue;
        failure.message = "unknown option '" + Escape(name) + "'";
        if (const std::string suggestion = Suggestion(name, names); !suggestion.empty())
            failure.hint = suggestion;
        break;
    }
    return failure;
}

}  // namespace

void ParseCommandLine(int argc, const char* const* argv, Call& call) {
    Commands commands(call);
    CLI::App& app = commands.App();
    std::vector<std::string> arguments(argv + 1, argv + argc);
    const auto print = [&call](const std::string& text) {
        call.run = [text](Output& out) {
            out.Write(text);
            return kDone;
        };
    };
    try {
        AddImpliedCommand(app, arguments);
        if (arguments.empty())
            throw Failure{kUsage, "which file?", "kivmp4 FILE tells what is in it, \"kivmp4 help\" what else there is"};
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        print(HelpOf(Chosen(app)));
    } catch (const CLI::CallForVersion& version) {
        print(std::string(version.what()) + "\n");
    } catch (const CLI::ParseError& error) {
        throw UsageFailure(app, error, arguments);
    }
}

}  // namespace kivmp4::cli
