// Why a file, or a part of it, cannot be played: what kivmp4 check finds, for the commands that go through the library.
#pragma once

#include <initializer_list>
#include <optional>
#include <vector>

#include "check/Check.h"
#include "play/Source.h"

namespace kivmp4::cli {

/// The library says only that it cannot go on. The command's own reader looks at the file once more and says why.
class Diagnosis {
public:
    /// Looks at the samples' tables too, which takes longest.
    explicit Diagnosis(const Source& source);
    /// Looks at what `extent` says.
    Diagnosis(const Source& source, check::Extent extent);

    /// Why nothing can be played, or why playing stopped, with the place and what to do about it.
    std::optional<Failure> Reason(ExitCode exitCode) const;
    /// Whether the samples lie in fragments, where the library does not look.
    bool InFragments() const { return First({"fragmented"}) != nullptr; }
    /// Whatever keeps the user from getting all that is in the file.
    std::vector<check::Finding> Losses() const;

private:
    const check::Finding* First(std::initializer_list<const char*> rules) const;

    const Source& source;
    std::vector<check::Finding> findings;
};

}  // namespace kivmp4::cli
