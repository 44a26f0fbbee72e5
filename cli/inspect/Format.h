// Text for messages about boxes.
#pragma once

#include <string>

namespace kivmp4::inspect {

/// As printf writes it, at most 255 bytes.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);

/// Four bytes of a type for messages: printable ones as they are, others as "\xNN".
std::string TypeText(const std::string& type);

}  // namespace kivmp4::inspect
