// kivmp4 check and kivmp4 boxes as commands: their options, and what they do with files.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Boxes.h"

namespace CLI {
class App;
}

namespace kivmp4::cli {

struct CheckArguments {
    std::vector<std::string> files = {};
    bool deep = false, strict = false, json = false, listRules = false;
};
struct BoxesArguments {
    std::string file = {};
    BoxesOptions options = {};
    bool json = false;
};

/// What a command has to say, and its exit code.
struct Answer {
    std::string out;  // for standard output
    std::string err;  // one line for each file that could not be read, with its end
    int exitCode = 0;
};

/// A file that cannot be read counts more than one with faults.
Answer Check(const CheckArguments& arguments);
Answer Boxes(const BoxesArguments& arguments);

/// Add the commands to the command line. When one is called, `run` becomes what answers it.
void AddCheck(CLI::App& app, std::function<Answer()>& run);
void AddBoxes(CLI::App& app, std::function<Answer()>& run);

}  // namespace kivmp4::cli
