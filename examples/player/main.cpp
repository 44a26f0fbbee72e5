// Options, SDL, and the player.
#define SDL_MAIN_HANDLED
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Player.h"

namespace {

constexpr char kUsage[] =
    "usage: player [OPTION...] FILE\n"
    "  --start SECONDS      begin there\n"
    "  --latency MS         each request to the file takes that long\n"
    "  --bandwidth MB/S     and the file comes at that rate\n"
    "  --headless SECONDS   play without window and loudspeaker, then tell what was shown\n"
    "  --press LIST         press keys: \"3:f 5.5:space 7:@0.5\", the last a click in the middle of the bar\n";

// @return false when the command line is wrong
bool Parse(int count, char** words, player::Options& options) {
    const struct {
        const char* name;
        double* value;
        double unit;
    } numbers[] = {{"--start", &options.start, 1},
                   {"--latency", &options.latency, 1e-3},
                   {"--bandwidth", &options.bandwidth, 1e6},
                   {"--headless", &options.headless, 1}};
    for (int at = 1; at < count; ++at) {
        if (words[at][0] != '-') {
            if (!options.path.empty())
                return false;
            options.path = words[at];
            continue;
        }
        const char* const value = ++at < count ? words[at] : nullptr;
        if (!value)
            return false;
        bool known = std::strcmp(words[at - 1], "--press") == 0;
        if (known)
            options.presses = value;
        for (const auto& number : numbers) {
            if (std::strcmp(words[at - 1], number.name) != 0)
                continue;
            char* end = nullptr;
            *number.value = std::strtod(value, &end) * number.unit;
            known = end != value && *end == '\0' && *number.value >= 0;
        }
        if (!known)
            return false;
    }
    return !options.path.empty();
}

}  // namespace

int main(int argc, char** argv) {
    player::Options options;
    if (!Parse(argc, argv, options)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    if (options.headless > 0) {
        SDL_setenv("SDL_VIDEODRIVER", "dummy", 1);
        SDL_setenv("SDL_AUDIODRIVER", "dummy", 1);
    }
    SDL_SetMainReady();
    if (SDL_Init(SDL_INIT_VIDEO | SDL_INIT_EVENTS) != 0) {
        std::fprintf(stderr, "player: %s\n", SDL_GetError());
        return 1;
    }
    SDL_InitSubSystem(SDL_INIT_AUDIO);  // without it the film plays silently
    const int code = player::Player(options).Run();
    SDL_Quit();
    return code;
}
