// Scripts that complete the command line in a shell, made from the options themselves.
#pragma once

#include <string>

namespace CLI {
class App;
}

namespace kivmp4::cli {

/// @param shell  "bash", "zsh" or "fish"
std::string CompletionFor(const CLI::App& app, const std::string& shell);

}  // namespace kivmp4::cli
