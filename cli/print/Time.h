// Times as people write and read them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kivmp4::cli {

constexpr int64_t kTicksPerSecond = 90000;

/// A time as given on the command line: a count of ticks, or a share of the duration.
struct TimeArgument {
    std::string text;  // as it was given
    int64_t ticks = 0;
    std::optional<double> percent;

    /// @param duration  of the file, in ticks
    int64_t At(int64_t duration) const;
};

/// Understands "12.5" (seconds), "m:ss", "h:mm:ss", both with a fraction, "90000t" (ticks), "50%" and "end".
/// @return nothing when `text` is none of these or its value does not fit
std::optional<TimeArgument> ParseTime(const std::string& text);

/// "1:02.345" or "1:01:02.345", with a sign when negative; fractions below a millisecond are cut off.
std::string FormatTime(int64_t ticks);

/// Seconds with three digits after the point and always a sign, such as "+0.040".
std::string FormatDifference(int64_t ticks);

}  // namespace kivmp4::cli
