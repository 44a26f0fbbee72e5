// One picture as SVG: axes with round values, areas, lines and marks in colours that the style sheet chooses.
#include "render/Plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace kivmp4::render {

namespace {

constexpr double kAcross = 1000;    // units of the stretched part
constexpr uint32_t kAbove = 18;     // pixels for a line of the legend
constexpr uint32_t kBelow = 22;     // for what is written along the x axis
constexpr size_t kInLegend = 3;     // entries in one line
constexpr size_t kTicksAcross = 6;  // a narrow window has room for as many
constexpr double kPixelsATick = 36;

// At most one digit after the point, none when it is 0: a picture has thousands of these.
std::string Number(double value) {
    std::string text = fmt::format("{:.1f}", value);
    if (text.ends_with(".0"))
        text.resize(text.size() - 2);
    return text == "-0" ? "0" : text;
}

// Of the picture's width.
std::string Percent(double x) { return Number(x / kAcross * 100); }

std::string Text(std::string_view kind, double x, double y, const std::string& text) {
    return fmt::format("<text class=\"{}\" x=\"{}%\" y=\"{}\">{}</text>\n", kind, Percent(x), Number(y), text);
}

}  // namespace

Colour ColourOf(size_t number) {
    constexpr std::array<Colour, kColours> kClasses = {"c0", "c1", "c2", "c3", "c4"};
    return kClasses[number % kColours];
}

Plot::Plot(std::string what, Axis x, Axis y, uint32_t pixels)
    : label(std::move(what)), xAxis(x), yAxis(y), height(pixels) {}

double Plot::X(double value) const {
    return std::clamp((value - xAxis.low) / (xAxis.high - xAxis.low), 0.0, 1.0) * kAcross;
}

double Plot::Y(double value) const {
    return (1 - std::clamp((value - yAxis.low) / (yAxis.high - yAxis.low), 0.0, 1.0)) * height;
}

uint32_t Plot::Top() const {
    const size_t lines = !title.empty() + (legend.size() + kInLegend - 1) / kInLegend;
    return kAbove * static_cast<uint32_t>(std::max<size_t>(1, lines));
}

uint32_t Plot::Whole() const { return Top() + height + kBelow; }

void Plot::AddPath(std::string_view kind, Colour colour, const std::string& path, const Series* series) {
    stretched += fmt::format("<path class=\"{} {}\" d=\"{}\"", kind, colour, path);
    if (series && !series->name.empty()) {
        stretched += fmt::format(" data-name=\"{}\" data-unit=\"{}\" data-v=\"", series->name, Name(series->unit));
        for (size_t i = 0; i < series->values.size(); i++)
            stretched += fmt::format("{}{:.6g}", i ? "," : "", series->values[i]);
        stretched += '"';
    }
    stretched += "/>\n";
}

void Plot::Area(const Series& series, bool pale) {
    const auto count = static_cast<double>(series.values.size());
    std::string path = fmt::format("M0 {}", height), last;
    for (size_t i = 0; i < series.values.size(); i++) {
        const std::string y = Number(Y(series.values[i]));
        if (y != last)
            path += fmt::format("H{}V{}", Number(kAcross * static_cast<double>(i) / count), y);
        last = y;
    }
    path += fmt::format("H{}V{}z", kAcross, height);
    AddPath(pale ? "area pale" : "area", series.colour, path, &series);
}

void Plot::Steps(const Series& series) {
    const auto count = static_cast<double>(series.values.size());
    std::string path;
    bool drawing = false;
    for (size_t i = 0; i < series.values.size(); i++) {
        const bool has = series.values[i] >= 0;
        if (has) {
            const std::string y = Number(Y(series.values[i]));
            path += drawing ? fmt::format("V{}", y)
                            : fmt::format("M{} {}", Number(kAcross * static_cast<double>(i) / count), y);
            path += fmt::format("H{}", Number(kAcross * static_cast<double>(i + 1) / count));
        }
        drawing = has;
    }
    AddPath("line", series.colour, path, &series);
}

void Plot::Ranges(const Series& lows, const std::vector<double>& highs) {
    const auto count = static_cast<double>(lows.values.size());
    std::string path;
    for (size_t i = 0; i < lows.values.size();) {
        // A run of columns with values: along the high ones and back along the low ones.
        size_t end = i;
        std::string back;
        while (end < lows.values.size() && lows.values[end] <= highs[end]) {
            const std::string left = Number(kAcross * static_cast<double>(end) / count);
            const std::string right = Number(kAcross * static_cast<double>(end + 1) / count);
            path += fmt::format("{}{} {}H{}", end == i ? 'M' : 'L', left, Number(Y(highs[end])), right);
            back.insert(0, fmt::format("L{} {}H{}", right, Number(Y(lows.values[end])), left));
            end++;
        }
        path += back + (back.empty() ? "" : "z");
        i = std::max(end, i + 1);
    }
    AddPath("range", lows.colour, path, &lows);
}

void Plot::Spans(Colour colour, double low, double high, const std::vector<bool>& columns) {
    const auto count = static_cast<double>(columns.size());
    const std::string top = Number(Y(high)), bottom = Number(Y(low));
    std::string path;
    for (size_t i = 0; i < columns.size(); i++) {
        const size_t start = i;
        while (i < columns.size() && columns[i])
            i++;
        if (i > start)
            path += fmt::format("M{} {}V{}H{}V{}z", Number(kAcross * static_cast<double>(start) / count), top, bottom,
                                Number(kAcross * static_cast<double>(i) / count), top);
    }
    AddPath("area", colour, path, nullptr);
}

void Plot::Strokes(Colour colour, const std::vector<Point>& pairs) {
    std::string path;
    for (size_t i = 0; i + 1 < pairs.size(); i += 2)
        path += fmt::format("M{} {}L{} {}", Number(X(pairs[i].x)), Number(Y(pairs[i].y)), Number(X(pairs[i + 1].x)),
                            Number(Y(pairs[i + 1].y)));
    AddPath("stroke", colour, path, nullptr);
}

void Plot::Dots(Colour colour, const std::vector<Point>& points) {
    // Lines of no length with round ends keep their form however the picture is stretched.
    std::string path;
    for (const Point& point : points)
        path += fmt::format("M{} {}h0", Number(X(point.x)), Number(Y(point.y)));
    AddPath("dots", colour, path, nullptr);
}

void Plot::AddBand(const std::string& where, const std::string& text) {
    behind += fmt::format("<rect class=\"band\" {}><title>{}</title></rect>\n", where, text);
}

void Plot::BandAcross(double low, double high, const std::string& text) {
    AddBand(fmt::format("width=\"100%\" y=\"{}\" height=\"{}\"", Number(Y(high)), Number(Y(low) - Y(high))), text);
    front += Text("note end", kAcross, Y(high) + 13, text);
}

void Plot::BandUp(double low, double high, const std::string& text) {
    AddBand(fmt::format("x=\"{}%\" width=\"{}%\" height=\"{}\"", Percent(X(low)), Percent(X(high) - X(low)), height),
            text);
    const bool room = X(high) < kAcross * 0.7;
    front += Text(room ? "note" : "note end", room ? X(high) + kAcross * 0.01 : kAcross, 13, text);
}

void Plot::Rule(Colour colour, double y, const std::string& text) {
    front +=
        fmt::format("<line class=\"rule {}\" x2=\"100%\" y1=\"{}\" y2=\"{}\"/>\n", colour, Number(Y(y)), Number(Y(y)));
    front += Text("note end", kAcross, Y(y) - 4, text);
}

void Plot::Note(double y, const std::string& text) { front += Text("note", 0, Y(y) - 4, text); }

void Plot::Legend(Colour colour, const std::string& text) { legend.push_back({colour, text}); }

std::string Plot::Heading() const {
    std::string svg;
    uint32_t line = 0;
    if (!title.empty()) {
        svg += Text("note", 0, 11, title);
        line = kAbove;
    }
    for (size_t i = 0; i < legend.size(); i++) {
        const double left = static_cast<double>(i % kInLegend) / kInLegend * kAcross;
        const auto top = line + kAbove * static_cast<uint32_t>(i / kInLegend);
        svg += fmt::format(
            "<svg x=\"{}%\" y=\"{}\" overflow=\"visible\"><rect class=\"area {}\" y=\"2\" width=\"10\" "
            "height=\"10\"/><text class=\"tick\" x=\"14\" y=\"11\">{}</text></svg>\n",
            Percent(left), top, legend[i].colour, legend[i].text);
    }
    return svg;
}

Plot::Frame Plot::Axes() const {
    Frame frame;
    frame.lines = fmt::format("<line class=\"axis\" x2=\"100%\" y1=\"{0}\" y2=\"{0}\"/>\n", height);
    const auto rows = static_cast<size_t>(std::max(1.0, height / kPixelsATick));
    for (const double tick : Ticks(yAxis, rows)) {
        if (tick <= yAxis.low)
            continue;
        frame.lines += fmt::format("<line class=\"grid\" x2=\"100%\" y1=\"{0}\" y2=\"{0}\"/>\n", Number(Y(tick)));
        frame.numbers += fmt::format("<text class=\"tick end\" x=\"-8\" y=\"{}\">{}</text>\n", Number(Y(tick) + 4),
                                     TickLabel(tick, yAxis));
    }
    bool second = false;  // each second number is left out in narrow windows
    for (const double tick : Ticks(xAxis, kTicksAcross)) {
        const double at = X(tick);
        const char* anchor = at < kAcross * 0.04 ? "" : at > kAcross * 0.96 ? " end" : " middle";
        frame.lines += fmt::format("<line class=\"grid\" x1=\"{0}%\" x2=\"{0}%\" y1=\"{1}\" y2=\"{2}\"/>\n",
                                   Percent(at), height, height + 4);
        frame.numbers +=
            Text(fmt::format("tick{}{}", anchor, second ? " second" : ""), at, height + 16, TickLabel(tick, xAxis));
        second = !second;
    }
    return frame;
}

std::string Plot::Svg() const {
    const uint32_t top = Top();
    const Frame frame = Axes();
    std::string svg = fmt::format(
        "<svg class=\"plot\" role=\"img\" aria-label=\"{}\" width=\"100%\" height=\"{}\" data-low=\"{:.6g}\" "
        "data-high=\"{:.6g}\" data-unit=\"{}\">\n",
        label, Whole(), xAxis.low, xAxis.high, Name(xAxis.unit));
    svg += Heading();
    svg += fmt::format("<svg y=\"{}\" overflow=\"visible\">\n{}{}", top, behind, frame.lines);
    svg += fmt::format(
        "<svg width=\"100%\" height=\"{0}\" viewBox=\"0 0 {1} {0}\" preserveAspectRatio=\"none\">\n{2}"
        "</svg>\n",
        height, kAcross, stretched);
    return svg + frame.numbers + front + "</svg>\n</svg>\n";
}

std::string Plot::File() const {
    constexpr uint32_t kWidth = 960, kMargin = 16;
    return fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{}\" height=\"{}\">\n<style>{}</style>\n"
        "<rect fill=\"var(--page)\" width=\"100%\" height=\"100%\"/>\n<svg x=\"{}\" y=\"{}\" width=\"{}\" "
        "overflow=\"visible\">\n{}</svg>\n</svg>\n",
        kWidth, Whole() + 2 * kMargin, kPlotStyle, kLeft, kMargin, kWidth - kLeft - kMargin, Svg());
}

}  // namespace kivmp4::render
