// Makes text from files and paths fit for a terminal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kivmp4::cli {

/// Keeps printable ASCII and well-formed UTF-8 letters; every other byte and the backslash become "\xNN", so that no
/// name can move the cursor or reprogram the terminal.
std::string Escape(std::string_view text);

/// Two lower-case digits a byte, nothing between them.
std::string Hex(const uint8_t* bytes, size_t count);

/// "504.0 KiB"
std::string FormatBytes(uint64_t bytes);

/// Bits a second: "413 kb/s".
std::string FormatRate(double bitsPerSecond);

/// "1 unit", "5 units"
std::string Count(uint64_t number, std::string_view noun);

}  // namespace kivmp4::cli
