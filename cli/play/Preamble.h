// What a decoder needs before the first unit.
#pragma once

#include <KivMp4.h>

#include <string>

#include "inspect/Track.h"

namespace kivmp4::cli {

/// H.264's parameter sets, with start codes as the library writes them, or the configuration of MPEG-4 visual.
/// @param track  null when the command's own reader does not know the track
/// @return nothing for sound, and where there is none
std::string Preamble(const CodecInfo& info, const inspect::Track* track);

}  // namespace kivmp4::cli
