// What the command says of itself: help with examples, and the word that was meant.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
class FormatterBase;
}  // namespace CLI

namespace kivmp4::cli {

/// Help starts with what is asked for most: examples.
std::shared_ptr<CLI::FormatterBase> MakeHelpFormatter();

/// Of the whole, or of a command.
std::string HelpOf(const CLI::App& app);

/// "did you mean 'extract'?", or nothing when no known word is near.
std::string Suggestion(const std::string& word, const std::vector<std::string>& known);

}  // namespace kivmp4::cli
