// A stream to write to: standard output or a file, each write checked.
#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "print/Guard.h"
#include "print/Settings.h"

namespace kivmp4::cli {

enum class Paint { Bold, Faint, Red, Yellow, Cyan };

/// Every operation throws a Failure that names the stream when the system does not take the bytes.
class Output {
public:
    /// Standard output.
    explicit Output(Colour colour = Colour::Never);
    /// A file, which gets its name when Finish is called: until then "PATH.part" is written. "-" is standard output.
    /// Throws when the file exists, unless `replace` says that it may be replaced.
    Output(const std::string& path, bool replace);
    /// Without Finish nothing is left of a file.
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    template <typename... Values>
    void Print(fmt::format_string<Values...> format, Values&&... values) {
        Write(fmt::format(format, std::forward<Values>(values)...));
    }
    void Write(std::string_view text);
    void Write(const uint8_t* bytes, size_t count);
    /// Hands everything to the system.
    void Finish();

    /// The text as it looks on a terminal with colours; elsewhere the text alone.
    std::string Painted(Paint paint, const std::string& text) const;
    bool IsStandard() const { return stream == stdout; }
    /// The path, escaped.
    const std::string& Name() const { return name; }

private:
    [[noreturn]] void Refused(int error) const;

    std::FILE* stream;  // owned, except for standard output
    std::string path, name;
    std::unique_ptr<Unfinished> unfinished;  // null for standard output
    bool coloured = false;
};

}  // namespace kivmp4::cli
