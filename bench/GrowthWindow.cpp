// growth_window SAMPLES UNITS: delivers a movie of that many samples and lets callgrind count the last UNITS of them.
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>

#include "MemoryMovie.h"

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    kivmp4::bench::MemoryMovie movie({.tracks = 1}, static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10)));
    const uint32_t counted = static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10));
    kivmp4::bench::Player player(movie);
    for (uint32_t unit = 0; unit < movie.Samples(); ++unit) {
        if (unit == movie.Samples() - counted)
            CALLGRIND_START_INSTRUMENTATION;
        if (KivMp4GetNextUnit(player.demux, &player.unit) != KIVMP4_OK) {
            std::fprintf(stderr, "unit %u of %u was not delivered\n", unit, movie.Samples());
            return 1;
        }
    }
    CALLGRIND_STOP_INSTRUMENTATION;
    return 0;
}
