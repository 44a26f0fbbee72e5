// The share of long work that is done, for a person at a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "print/Settings.h"

namespace kivmp4::cli {

/// One line on standard error, from half a second on, at most ten times a second, erased at the end. Nothing is shown
/// where standard error is no terminal.
class Progress {
public:
    /// @param what   the command
    /// @param whole  bytes of the work; 0 when unknown
    Progress(const Settings& settings, const std::string& what, uint64_t whole);
    ~Progress() { Erase(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// So many more bytes are done.
    void Add(uint64_t bytes);
    /// Before anything else is written to the terminal.
    void Erase();

private:
    using Clock = std::chrono::steady_clock;
    void Show(Clock::time_point now);

    std::string name;
    uint64_t whole, done = 0;
    bool wanted, shown = false;
    Clock::time_point start, next;
};

}  // namespace kivmp4::cli
