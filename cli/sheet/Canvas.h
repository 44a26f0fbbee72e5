// Draws a contact sheet and writes it as PNG.
#pragma once

#include <string>
#include <vector>

#include "sheet/KeyFrameDecoder.h"

namespace kivmp4::cli {

/// One place of the sheet.
struct Cell {
    std::string caption;
    std::optional<Picture> picture;  // nothing: a frame that cannot be decoded
};

struct SheetForm {
    std::string title;
    int columns = 4;
    int width = 320, height = 180;  // of a cell's picture as it is shown, pixels
    int rotation = 0;               // degrees clockwise by which pictures are turned: 0, 90, 180 or 270
    bool mirrored = false;
};

/// @return the PNG's bytes; nothing when there is no memory for it
std::string DrawSheet(const SheetForm& form, std::vector<Cell>& cells);

}  // namespace kivmp4::cli
