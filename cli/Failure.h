// What every part of the command throws when it cannot go on, and the exit codes.
#pragma once

#include <string>

namespace kivmp4::cli {

/// The command's exit codes, as its manual page lists them.
enum ExitCode : int {
    kDone = 0,
    kUsage = 2,         // unknown option, malformed time, no such track
    kCannotRead = 3,    // the system refuses to read the file or to write the output
    kNotUsable = 4,     // not an MP4 file, or none that this command can work on
    kStopped = 5,       // delivery stopped before the end; what was written so far stays
    kReaderLeft = 141,  // whoever read standard output has seen enough: as a shell reports SIGPIPE
};

/// Ends the command. `message` is printed as it stands, so that names in it are escaped already.
struct Failure {
    ExitCode exitCode;
    std::string message;
};

}  // namespace kivmp4::cli
