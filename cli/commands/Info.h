// What kivmp4 info shows, for people and for programs.
#pragma once

#include "commands/Commands.h"
#include "play/FileView.h"
#include "print/JsonType.h"

namespace kivmp4::cli {

void PrintInfo(const FileView& file, const InfoArguments& arguments, Output& out);
Json InfoJson(const FileView& file, const InfoArguments& arguments);

}  // namespace kivmp4::cli
