// Times as people write and read them.
#include "print/Time.h"

#include <KivMp4.h>
#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <string_view>
#include <type_traits>

namespace kivmp4::cli {

namespace {

// Far above any file's duration and far below what 64 bits of ticks hold.
constexpr double kMostSeconds = 1e12;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The whole of `text` as a number without sign and exponent.
template <typename Number>
std::optional<Number> ParseNumber(std::string_view text) {
    if (text.empty() || !IsDigit(text[0]))
        return std::nullopt;
    Number value{};
    const char* end = text.data() + text.size();
    std::from_chars_result result{};
    if constexpr (std::is_floating_point_v<Number>)
        result = std::from_chars(text.data(), end, value, std::chars_format::fixed);
    else
        result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc{} || result.ptr != end)
        return std::nullopt;
    return value;
}

// "ss", "m:ss" or "h:mm:ss" with a fraction; fields after a colon are below 60 and start with two digits.
std::optional<double> ParseClock(std::string_view text) {
    double total = 0;
    int fields = 0;
    for (;;) {
        const size_t colon = text.find(':');
        const bool last = colon == std::string_view::npos;
        const std::string_view field = text.substr(0, colon);
        const size_t wholeDigits = field.substr(0, field.find('.')).size();
        if (fields > 0 && wholeDigits != 2)
            return std::nullopt;
        std::optional<double> value;
        if (last) {
            value = ParseNumber<double>(field);
        } else if (const auto whole = ParseNumber<uint32_t>(field)) {
            value = *whole;
        }
        if (!value || (fields > 0 && *value >= 60))
            return std::nullopt;
        total = total * 60 + *value;
        if (last)
            return total;
        if (++fields == 3)
            return std::nullopt;
        text.remove_prefix(colon + 1);
    }
}

uint64_t Magnitude(int64_t ticks) {
    return ticks < 0 ? 0 - static_cast<uint64_t>(ticks) : static_cast<uint64_t>(ticks);
}

constexpr uint64_t kRate = static_cast<uint64_t>(kTicksPerSecond);

unsigned Milliseconds(uint64_t ticks) { return static_cast<unsigned>(ticks % kRate * 1000 / kRate); }

}  // namespace

int64_t TimeArgument::At(int64_t duration) const {
    return percent ? static_cast<int64_t>(static_cast<double>(duration) * *percent / 100) : ticks;
}

std::optional<TimeArgument> ParseTime(const std::string& text) {
    TimeArgument argument;
    argument.text = text;
    const std::string_view front(text.data(), text.empty() ? 0 : text.size() - 1);
    if (text.ends_with('t')) {
        const auto ticks = ParseNumber<int64_t>(front);
        if (!ticks)
            return std::nullopt;
        argument.ticks = *ticks;
        return argument;
    }
    if (text == "end") {
        argument.percent = 100;
        return argument;
    }
    if (text.ends_with('%')) {
        argument.percent = ParseNumber<double>(front);
        if (!argument.percent || *argument.percent > 100)
            return std::nullopt;
        return argument;
    }
    const auto seconds = ParseClock(text);
    if (!seconds || *seconds > kMostSeconds)
        return std::nullopt;
    argument.ticks = std::llround(*seconds * static_cast<double>(kTicksPerSecond));
    return argument;
}

std::string FormatTime(int64_t ticks) {
    const uint64_t magnitude = Magnitude(ticks);
    const uint64_t seconds = KivMp4TicksToSeconds(magnitude);
    const std::string hours =
        seconds >= 3600 ? fmt::format("{}:{:02}", seconds / 3600, seconds / 60 % 60) : std::to_string(seconds / 60);
    return fmt::format("{}{}:{:02}.{:03}", ticks < 0 ? "-" : "", hours, seconds % 60, Milliseconds(magnitude));
}

std::string FormatDifference(int64_t ticks) {
    const uint64_t magnitude = Magnitude(ticks);
    return fmt::format("{}{}.{:03}", ticks < 0 ? '-' : '+', KivMp4TicksToSeconds(magnitude), Milliseconds(magnitude));
}

}  // namespace kivmp4::cli
