// A stream to write to: standard output or a file, each write checked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace kivmp4::cli {

/// Every operation throws a Failure that names the stream when the system does not take the bytes.
class Output {
public:
    /// Standard output.
    Output();
    /// Creates the file, or empties it.
    explicit Output(const std::string& path);
    /// Keeps what was written; call Finish before, it alone can tell of a failure.
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    [[gnu::format(printf, 2, 3)]] void Print(const char* format, ...);
    void Write(const uint8_t* bytes, size_t count);
    /// Hands everything to the system.
    void Finish();

private:
    [[noreturn]] void Refused() const;

    std::FILE* stream;  // owned, except for standard output
    std::string name;   // escaped
};

}  // namespace kivmp4::cli
