// What the command line says for every command.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kivmp4::cli {

enum class Colour { Auto, Always, Never };

struct Settings {
    bool quiet = false;    // nothing on standard error but failures
    bool json = false;     // for programs
    bool progress = true;  // shown on a terminal
    bool stats = false;    // what the work has cost, on standard error
    Colour colour = Colour::Auto;
    int32_t logLevel = 0;               // KIVMP4_LOG_..., of the library
    size_t heap = 0;                    // bytes for the library's own memory; 0: by the size of the file
    size_t memory = size_t{512} << 20;  // bytes that the library may ask for
    double timeout = 30;                // seconds without progress; 0: any time
};

}  // namespace kivmp4::cli
