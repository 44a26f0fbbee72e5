// The commands, one function each. They print to `out`, which the caller finishes, and throw a Failure.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "print/Failure.h"
#include "print/Output.h"
#include "print/Settings.h"
#include "print/Time.h"

namespace kivmp4::cli {

struct InfoArguments {
    std::vector<std::string> files = {};
    std::optional<uint32_t> track = {};  // this one only
    bool config = false;                 // the decoder configuration too
};
/// Describes files and their tracks.
ExitCode Info(const Settings& settings, const InfoArguments& arguments, Output& out);

enum class Form { Text, Csv, Document, Lines };  // the last two are JSON

struct PacketsArguments {
    std::string file = {};
    std::vector<uint32_t> tracks = {};   // all without any
    std::optional<uint64_t> count = {};  // units to list at most
    std::optional<TimeArgument> from = {}, to = {};
    bool sync = false;                      // key frames only
    bool hash = false;                      // the checksum of each unit's bytes too
    std::vector<std::string> columns = {};  // without any those that the form has by itself
    Form form = Form::Text;
};
/// Lists the units in the order of delivery.
ExitCode Packets(const Settings& settings, const PacketsArguments& arguments, Output& out);

struct KeysArguments {
    std::string file = {};
    bool backward = false, stats = false, csv = false;
};
/// Steps through the key frames as a player winds forward or backward.
ExitCode Keys(const Settings& settings, const KeysArguments& arguments, Output& out);

struct SeekArguments {
    std::string file = {};
    std::vector<TimeArgument> times = {};
};
/// Jumps to each time and tells where each track lands.
ExitCode Seek(const Settings& settings, const SeekArguments& arguments, Output& out);

struct ExtractArguments {
    std::string file = {};
    std::vector<uint32_t> tracks = {};
    bool video = false, audio = false;  // the first track of the kind
    std::string output = {};            // file, directory or "-"
    std::string format = "auto";        // or h264, m4v, aac, raw, pcm
    std::optional<TimeArgument> from = {}, to = {};
    bool force = false;  // replace files
};
/// Writes tracks to files.
ExitCode Extract(const Settings& settings, const ExtractArguments& arguments, Output& out);

struct HashArguments {
    std::vector<std::string> files = {};
    std::string algorithm = "sha256";
    bool perUnit = false;
};
/// Tells a checksum of each track's bytes as they are delivered.
ExitCode Hash(const Settings& settings, const HashArguments& arguments, Output& out);

struct DiffArguments {
    std::string first = {}, second = {};
    bool onlyTimes = false, onlyPayload = false;  // what is compared
};
/// Compares the units of two files, track by track.
ExitCode Diff(const Settings& settings, const DiffArguments& arguments, Output& out);

struct BoxesOptions {
    std::string path = {};        // only boxes that match: "moov/trak[1]/**/stts"; empty for all
    uint32_t depth = UINT32_MAX;  // levels below the top to show
    uint32_t entries = 0;         // rows of each table to show
    bool hex = false;             // the first bytes of each box without children
};

struct BoxesArguments {
    std::string file = {};
    BoxesOptions options = {};
};
/// Shows the tree of boxes.
ExitCode Boxes(const Settings& settings, const BoxesArguments& arguments, Output& out);

struct CheckArguments {
    std::vector<std::string> files = {};
    bool deep = false, strict = false, listRules = false;
};
/// Finds what is wrong with files.
ExitCode Check(const Settings& settings, const CheckArguments& arguments, Output& out);

struct TraceArguments {
    std::string file = {};
    std::optional<double> play = {};     // seconds of the film
    std::optional<uint32_t> seeks = {};  // how many
    bool trick = false;                  // wind by key frames
    double latency = 0, bandwidth = 0;   // of the device: milliseconds a request, MB a second
    double decode = 0;                   // MB a second that the decoder takes
    bool reads = false;                  // list each read
};
/// Tells what a player's `read` sees, and how long the player waits.
ExitCode Trace(const Settings& settings, const TraceArguments& arguments, Output& out);

struct ReportArguments {
    std::string file = {};
    std::string output = {};
    std::string title = {};              // empty: the file's name
    std::string svgDirectory = {};       // each picture there too; empty: nowhere
    double latency = 2, bandwidth = 20;  // of the device that plays: milliseconds a request, MB a second
    bool force = false;                  // replace the output
};
/// Draws a page about one file.
ExitCode Report(const Settings& settings, const ReportArguments& arguments, Output& out);

struct SheetArguments {
    std::string file = {};
    std::string output = {};
    uint32_t columns = 4;
    uint32_t width = 320;                    // of a picture, pixels
    uint32_t max = 24;                       // pictures
    std::optional<TimeArgument> every = {};  // pictures lie at least so far apart
    bool force = false;                      // replace the output
};
/// Draws a contact sheet of key frames.
ExitCode Sheet(const Settings& settings, const SheetArguments& arguments, Output& out);

/// Prints a failure: on standard error, and for programs to `out`.
void Tell(const Settings& settings, const Failure& failure, Output& out);

/// Does the same with each file. A failure is told and the next file's turn comes. @return the exit code for all
ExitCode EachFile(const Settings& settings, const std::vector<std::string>& files, Output& out,
                  const std::function<ExitCode(const std::string&)>& work);

}  // namespace kivmp4::cli
