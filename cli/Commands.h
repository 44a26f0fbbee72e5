// The commands, one function each. They print to `out`, which the caller finishes, and throw a Failure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Output.h"
#include "Player.h"
#include "Time.h"

namespace kivmp4::cli {

/// What the command line asked for, beside the file and the log level.
struct Options {
    std::optional<uint32_t> track;
    std::optional<uint64_t> count;    // units to list at most
    std::string directory;            // to extract to
    bool backward = false;            // key frames from the last to the first
    std::vector<TimeArgument> times;  // to seek to
};

/// Describes the file and its tracks.
void Info(Player& player, const Options& options, Output& out);
/// Lists the units in the order of delivery.
void Packets(Player& player, const Options& options, Output& out);
/// Writes each track to a file of its own.
void Extract(Player& player, const Options& options, Output& out);
/// Steps through the key frames as a player winds forward or backward.
void Keys(Player& player, const Options& options, Output& out);
/// Jumps to each time and tells where each track lands.
void Seek(Player& player, const Options& options, Output& out);

}  // namespace kivmp4::cli
