// The command line: which command with which arguments.
#pragma once

#include <functional>
#include <string>

#include "print/Failure.h"
#include "print/Output.h"
#include "print/Settings.h"

namespace kivmp4::cli {

/// What the command line asks for.
struct Call {
    Settings settings = {};
    std::function<ExitCode(Output&)> run = {};
};

/// Throws a Failure with the usual hint when the arguments are wrong.
/// @param call  is filled in, and must stay where it is until it has run
void ParseCommandLine(int argc, const char* const* argv, Call& call);

}  // namespace kivmp4::cli
