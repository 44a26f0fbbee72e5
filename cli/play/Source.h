// The file that a command works on: its name, its bytes, and what its boxes say.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "inspect/Movie.h"
#include "print/Failure.h"

namespace kivmp4::cli {

/// Opens the file; throws a Failure in words when that cannot be done.
class Source {
public:
    /// @param path  "-" for standard input, if that is a regular file
    explicit Source(const std::string& path);

    /// As it was given.
    const std::string& Path() const { return path; }
    /// The path, escaped.
    const std::string& Name() const { return name; }
    const inspect::File& File() const { return file; }
    /// The boxes by the command's own reader, read at the first call.
    const inspect::Movie& Movie() const;
    /// A track by the library's number. @return null when the command's own reader does not find it
    const inspect::Track* Track(uint32_t index) const;

    /// A failure about this file.
    Failure Refuse(ExitCode exitCode, const std::string& message, const std::string& hint = {}) const;
    /// Throws when the system has refused a read.
    void RequireReads() const;

private:
    std::string path, name;
    inspect::File file;
    mutable std::unique_ptr<inspect::Movie> movie;
};

}  // namespace kivmp4::cli
