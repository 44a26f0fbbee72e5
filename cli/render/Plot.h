// One picture as SVG: axes with round values, areas, lines and marks in colours that the style sheet chooses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "render/Axis.h"

namespace kivmp4::render {

/// A class of the style sheet. The first kColours are for things of equal rank; they come round again.
using Colour = std::string_view;
constexpr size_t kColours = 5;
Colour ColourOf(size_t number);
constexpr uint32_t kLeft = 64;  // pixels
constexpr Colour kFaint = "faint", kWarn = "warn", kInk = "ink";

struct Point {
    double x, y;
};

/// The values of one thing, one for each of the equal columns into which the x axis is cut.
struct Series {
    Colour colour;
    std::string name;  // escaped already
    std::vector<double> values;
    Unit unit = Unit::None;  // of the values, when a reader points at them
};

/// Widths are shares of the picture, so that it fits any window while its text keeps its size; heights are pixels.
class Plot {
public:
    /// @param label  what the picture shows, for readers who do not see it; escaped already
    Plot(std::string label, Axis x, Axis y, uint32_t height);

    /// Filled from the x axis up to each value.
    void Area(const Series& series, bool pale = false);
    /// A step for each value, without filling. Values below 0 are left out.
    void Steps(const Series& series);
    /// Filled between two values; columns without a value have low above high.
    void Ranges(const Series& lows, const std::vector<double>& highs);
    /// Filled over [low, high] of the y axis wherever the column is set.
    void Spans(Colour colour, double low, double high, const std::vector<bool>& columns);
    /// Short lines from one point to the next one: pairs of points.
    void Strokes(Colour colour, const std::vector<Point>& pairs);
    /// Marks of a fixed size.
    void Dots(Colour colour, const std::vector<Point>& points);
    /// A shaded stretch of the picture: all of it in the other direction.
    void BandAcross(double low, double high, const std::string& text);
    void BandUp(double low, double high, const std::string& text);
    /// A broken line across the picture.
    void Rule(Colour colour, double y, const std::string& text);
    /// A name at the left edge, above y.
    void Note(double y, const std::string& text);
    /// A line above the picture.
    void Title(const std::string& text) { title = text; }
    /// Names what a colour stands for, above the picture.
    void Legend(Colour colour, const std::string& text);

    /// The element, to stand in a page with the style sheet. Numbers of the y axis reach kLeft pixels out to the left.
    std::string Svg() const;
    /// A file of its own.
    std::string File() const;

private:
    double X(double value) const;  // 0 to 1000
    double Y(double value) const;  // pixels from the top
    uint32_t Top() const;
    uint32_t Whole() const;
    struct Frame {
        std::string lines, numbers;
    };
    Frame Axes() const;
    std::string Heading() const;
    void AddPath(std::string_view kind, Colour colour, const std::string& path, const Series* series);
    void AddBand(const std::string& where, const std::string& text);

    struct LegendEntry {
        Colour colour;
        std::string text;
    };

    const std::string label;
    const Axis xAxis, yAxis;
    const uint32_t height;
    std::string title;
    std::vector<LegendEntry> legend;
    std::string stretched;  // drawn in 1000 units across
    std::string behind;     // under it, in shares of the width
    std::string front;      // over it, in shares of the width
};

/// The colours, for light and for dark surroundings, and the forms of everything that a Plot draws.
extern const std::string_view kPlotStyle;

}  // namespace kivmp4::render
