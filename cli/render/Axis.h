// Numbers as a reader of a picture takes them in: labels with their unit, and ticks at round values.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kivmp4::render {

/// What a value is measured in.
enum class Unit {
    None,   // nothing is written on the axis
    Time,   // seconds
    Bytes,  // bytes, in powers of 1024
    Rate,   // bits a second
};

/// One direction of a picture. `high` is above `low`.
struct Axis {
    Unit unit = Unit::None;
    double low = 0, high = 1;
};

/// "1:30", "192 KiB", "1.5 Mb/s"; nothing for Unit::None.
std::string Label(double value, Unit unit);
/// The same for a tick; on an axis of less than a minute times are "2 s" and "250 ms".
std::string TickLabel(double value, const Axis& axis);

/// At most `most` round values from `low` to `high`: steps of 1, 2 or 5 and zeros, for times of parts of minutes and
/// hours, for bytes of powers of 2.
std::vector<double> Ticks(const Axis& axis, size_t most);

/// The name of the unit for the script of the page: "time", "bytes", "rate", "".
const char* Name(Unit unit);

/// Text for between tags and for attributes: & < > and quotes are written as HTML and SVG need them.
std::string Markup(std::string_view text);

}  // namespace kivmp4::render
