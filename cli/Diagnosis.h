// Why a file, or a part of it, cannot be played: what kivmp4 check finds, for the commands that go through the library.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

namespace kivmp4::cli {

/// The library says only that it cannot go on. The command's own reader looks at the file once more and says why.
class Diagnosis {
public:
    /// A file that cannot be read any more has nothing to tell.
    explicit Diagnosis(const std::string& path);

    /// Why nothing can be played, or why playing stopped, with what to do about it; `otherwise` when nothing is found.
    std::string Reason(const std::string& otherwise) const;
    /// Whether the samples lie in fragments, where the library does not look.
    bool InFragments() const { return First({"fragmented"}) != nullptr; }
    /// One line for each thing that keeps the user from getting all that is in the file.
    std::vector<std::string> Losses() const;

private:
    struct Found {
        std::string rule;
        std::string text;  // with the place, escaped
        std::string hint;
    };

    const Found* First(std::initializer_list<const char*> rules) const;

    std::vector<Found> findings;
};

}  // namespace kivmp4::cli
