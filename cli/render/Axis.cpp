// Numbers as a reader of a picture takes them in: labels with their unit, and ticks at round values.
#include "render/Axis.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace kivmp4::render {

namespace {

// Divides by `base` until the value fits its unit: 1536 with KiB is "1.5 KiB".
std::string Scaled(double value, double base, const std::array<const char*, 5>& units) {
    size_t unit = 0;
    for (; std::abs(value) >= base && unit + 1 < units.size(); unit++)
        value /= base;
    return fmt::format("{:.4g} {}", value, units[unit]);
}

std::string TimeLabel(double seconds) {
    if (seconds < 0 || seconds > 1e9)
        return fmt::format("{:.4g} s", seconds);
    const auto whole = static_cast<int64_t>(seconds);
    return whole >= 3600 ? fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60)
                         : fmt::format("{}:{:02}", whole / 60, whole % 60);
}

// The least round number that is not below `step`.
double RoundStep(double step, Unit unit) {
    constexpr double kTimes[] = {1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 14400, 36000, 86400};
    if (unit == Unit::Time && step > 0.5 && step <= std::end(kTimes)[-1])
        return *std::lower_bound(std::begin(kTimes), std::end(kTimes), step);
    if (unit == Unit::Bytes)
        return std::max(1.0, std::exp2(std::ceil(std::log2(step))));
    const double decade = std::pow(10, std::floor(std::log10(step)));
    for (const double factor : {1, 2, 5}) {
        if (decade * factor >= step * (1 - 1e-9))
            return decade * factor;
    }
    return decade * 10;
}

}  // namespace

std::string Label(double value, Unit unit) {
    switch (unit) {
        case Unit::Time: return TimeLabel(value);
        case Unit::Bytes: return Scaled(value, 1024, {"bytes", "KiB", "MiB", "GiB", "TiB"});
        case Unit::Rate: return Scaled(value, 1000, {"b/s", "kb/s", "Mb/s", "Gb/s", "Tb/s"});
        default: return "";
    }
}

std::string TickLabel(double value, const Axis& axis) {
    if (axis.unit != Unit::Time || axis.high >= 60)
        return Label(value, axis.unit);
    return axis.high < 1 ? fmt::format("{:.4g} ms", value * 1e3) : fmt::format("{:.4g} s", value);
}

std::vector<double> Ticks(const Axis& axis, size_t most) {
    std::vector<double> ticks;
    if (axis.unit == Unit::None || most == 0 || !(axis.high > axis.low))
        return ticks;
    const double step = RoundStep((axis.high - axis.low) / static_cast<double>(most), axis.unit);
    for (double number = std::ceil(axis.low / step); number * step <= axis.high && ticks.size() < most; number++)
        ticks.push_back(number * step);
    return ticks;
}

const char* Name(Unit unit) {
    switch (unit) {
        case Unit::Time: return "time";
        case Unit::Bytes: return "bytes";
        case Unit::Rate: return "rate";
        default: return "";
    }
}

std::string Markup(std::string_view text) {
    std::string markup;
    for (const char character : text) {
        switch (character) {
            case '&': markup += "&amp;"; break;
            case '<': markup += "&lt;"; break;
            case '>': markup += "&gt;"; break;
            case '"': markup += "&quot;"; break;
            case '\'': markup += "&#39;"; break;
            default: markup += character;
        }
    }
    return markup;
}

}  // namespace kivmp4::render
