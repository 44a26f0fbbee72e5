// The share of long work that is done, for a person at a terminal.
#include "print/Progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "print/Guard.h"
#include "print/Text.h"

namespace kivmp4::cli {

namespace {

using namespace std::chrono_literals;
constexpr auto kPatience = 500ms, kInterval = 100ms;

}  // namespace

Progress::Progress(const Settings& settings, const std::string& what, uint64_t bytes)
    : name(what),
      whole(bytes),
      wanted(settings.progress && !settings.quiet && isatty(STDERR_FILENO)),
      start(Clock::now()),
      next(start + kPatience) {}

void Progress::Add(uint64_t bytes) {
    done += bytes;
    if (!wanted)
        return;
    if (const Clock::time_point now = Clock::now(); now >= next)
        Show(now);
}

void Progress::Show(Clock::time_point now) {
    next = now + kInterval;
    shown = true;
    ProgressLineShown(true);
    const double seconds = std::chrono::duration<double>(now - start).count();
    const double rate = static_cast<double>(done) / seconds;
    std::string line = fmt::format("{}  {}/s", FormatBytes(done), FormatBytes(static_cast<uint64_t>(rate)));
    if (whole) {
        const uint64_t left = whole > done ? whole - done : 0;
        const auto secondsLeft = static_cast<uint64_t>(static_cast<double>(left) / std::max(rate, 1.0));
        line = fmt::format("{:3}%  {}  of {}  {}:{:02} left", 100 * std::min(done, whole) / whole, line,
                           FormatBytes(whole), secondsLeft / 60, secondsLeft % 60);
    }
    fmt::print(stderr, "\r\033[K{}  {}", name, line);
    std::fflush(stderr);
}

void Progress::Erase() {
    if (!shown)
        return;
    shown = false;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    ProgressLineShown(false);
}

}  // namespace kivmp4::cli
