// kivmp4 boxes: the tree of boxes with places, sizes and the fields that matter.
#pragma once

#include <string>

#include "commands/Commands.h"
#include "inspect/Movie.h"
#include "print/JsonType.h"

namespace kivmp4::cli {

/// Indented lines, one for each box. @return nothing when no box matches the path
std::string BoxesText(const inspect::Movie& movie, const BoxesOptions& options);

/// The schema kivmp4.boxes/1 without the file's name.
Json BoxesJson(const inspect::Movie& movie, const BoxesOptions& options);

/// Whether a box's path, as Box::Path writes it, is of the pattern: "*" stands for one level, "**" for any number of
/// them, a type without a number for all boxes of the type.
bool Matches(const std::string& pattern, const std::string& path);

}  // namespace kivmp4::cli
