// JSON for programs: numbers are numbers, members stand in the order in which they were added.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <string_view>

#include "print/JsonType.h"

namespace kivmp4::cli {

/// The document with two blanks a level and an end of line. Bytes that are not UTF-8 become U+FFFD.
std::string Dump(const Json& json);

/// Ticks of 1/90000 s as seconds with six decimals.
Json Seconds(int64_t ticks);

/// Adds "file" and, for a name that is not UTF-8, "file_bytes" with its bytes in hexadecimal digits.
void AddFile(Json& json, const std::string& name);

}  // namespace kivmp4::cli
