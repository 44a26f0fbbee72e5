// Draws a contact sheet and writes it as PNG.
#include "sheet/Canvas.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>

namespace kivmp4::cli {

namespace {

constexpr int kGap = 10, kCaption = 22, kTitle = 34;  // pixels
constexpr double kCaptionSize = 13, kTitleSize = 15;

struct Shade {
    double red, green, blue;
};
constexpr Shade kPaper{0.12, 0.12, 0.13}, kText{0.92, 0.92, 0.92}, kHole{0.2, 0.2, 0.21}, kCross{0.85, 0.45, 0.2};

void Use(cairo_t* cairo, const Shade& shade) { cairo_set_source_rgb(cairo, shade.red, shade.green, shade.blue); }

void Write(cairo_t* cairo, const std::string& text, double x, double y, double size) {
    Use(cairo, kText);
    cairo_set_font_size(cairo, size);
    cairo_move_to(cairo, x, y);
    cairo_show_text(cairo, text.c_str());
}

// A frame that cannot be decoded shows as a crossed box.
void DrawGap(cairo_t* cairo, const SheetForm& form) {
    Use(cairo, kHole);
    cairo_rectangle(cairo, 0, 0, form.width, form.height);
    cairo_fill(cairo);
    Use(cairo, kCross);
    cairo_set_line_width(cairo, 2);
    cairo_move_to(cairo, 0, 0);
    cairo_line_to(cairo, form.width, form.height);
    cairo_move_to(cairo, form.width, 0);
    cairo_line_to(cairo, 0, form.height);
    cairo_stroke(cairo);
    Write(cairo, "cannot be decoded", 8, form.height - 8.0, kCaptionSize);
}

void DrawPicture(cairo_t* cairo, const SheetForm& form, Picture& picture) {
    cairo_surface_t* image =
        cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(picture.pixels.data()), CAIRO_FORMAT_RGB24,
                                            picture.width, picture.height, picture.width * 4);
    const bool lying = form.rotation == 90 || form.rotation == 270;
    cairo_translate(cairo, form.width / 2.0, form.height / 2.0);
    cairo_rotate(cairo, form.rotation * M_PI / 180);
    cairo_scale(cairo, (lying ? form.height : form.width) / double(picture.width) * (form.mirrored ? -1 : 1),
                (lying ? form.width : form.height) / double(picture.height));
    cairo_set_source_surface(cairo, image, -picture.width / 2.0, -picture.height / 2.0);
    cairo_paint(cairo);
    cairo_surface_destroy(image);
}

cairo_status_t Append(void* bytes, const unsigned char* data, unsigned int size) {
    static_cast<std::string*>(bytes)->append(reinterpret_cast<const char*>(data), size);
    return CAIRO_STATUS_SUCCESS;
}

}  // namespace

std::string DrawSheet(const SheetForm& form, std::vector<Cell>& cells) {
    const int count = static_cast<int>(cells.size());
    const int columns = std::clamp(count, 1, form.columns), rows = std::max(1, (count + columns - 1) / columns);
    const int width = kGap + columns * (form.width + kGap);
    const int height = kTitle + rows * (form.height + kCaption + kGap);
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
    cairo_t* cairo = cairo_create(surface);
    cairo_select_font_face(cairo, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    Use(cairo, kPaper);
    cairo_paint(cairo);
    Write(cairo, form.title, kGap, kTitle - 11.0, kTitleSize);
    for (int i = 0; i < count; i++) {
        const int column = i % columns, row = i / columns;
        const double x = kGap + column * (form.width + kGap), y = kTitle + row * (form.height + kCaption + kGap);
        cairo_save(cairo);
        cairo_translate(cairo, x, y);
        cairo_rectangle(cairo, 0, 0, form.width, form.height);
        cairo_clip(cairo);
        Cell& cell = cells[static_cast<size_t>(i)];
        if (cell.picture)
            DrawPicture(cairo, form, *cell.picture);
        else
            DrawGap(cairo, form);
        cairo_restore(cairo);
        Write(cairo, cell.caption, x, y + form.height + kCaption - 7, kCaptionSize);
    }
    std::string png;
    const bool done = cairo_status(cairo) == CAIRO_STATUS_SUCCESS &&
                      cairo_surface_write_to_png_stream(surface, Append, &png) == CAIRO_STATUS_SUCCESS;
    cairo_destroy(cairo);
    cairo_surface_destroy(surface);
    return done ? png : std::string();
}

}  // namespace kivmp4::cli
