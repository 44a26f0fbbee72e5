// What every part of the command throws when it cannot go on, and the exit codes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kivmp4::cli {

/// The command's exit codes, as its manual page lists them.
enum ExitCode : int {
    kDone = 0,
    kFound = 1,         // check found errors, diff found differences
    kUsage = 2,         // unknown option, malformed time, no such track
    kCannotRead = 3,    // the system refuses to open or to read the input
    kNotUsable = 4,     // not an MP4 file, or none that this command can work on
    kStopped = 5,       // the file is damaged: delivery stopped before the end; what was written so far stays
    kCannotWrite = 6,   // the system refuses to take the output, or it exists
    kLimit = 7,         // the heap, the memory budget or the time is used up
    kNotBuilt = 8,      // this build of the command lacks a library that the feature needs
    kReaderLeft = 141,  // whoever read standard output has seen enough: as a shell reports SIGPIPE
};

/// Ends what is done with a file. All texts are escaped, so that they can be printed as they stand.
struct Failure {
    ExitCode exitCode;
    std::string message;                  // what is wrong, where, in one sentence; printing nothing when it is empty
    std::string hint = {};                // what to do
    std::string file = {};                // which file; empty when it is about none
    std::string code = {};                // for programs; empty: by the exit code
    std::string path = {};                // of the box that it is about
    std::optional<uint64_t> offset = {};  // in the file
};

/// The one of two files' exit codes that counts for both.
ExitCode Worse(ExitCode a, ExitCode b);

/// "kivmp4: FILE: PATH at 0x1f: message", and the hint on a line of its own.
std::string ToText(const Failure& failure);
/// The object "error" that programs get on standard output.
std::string ToJson(const Failure& failure);

}  // namespace kivmp4::cli
