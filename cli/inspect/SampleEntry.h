// Reads the entries of "stsd".
#pragma once

#include "inspect/Track.h"

namespace kivmp4::inspect {

SampleEntry ReadSampleEntry(const File& file, const Box& box);

/// Why the module does not play what the entry describes, or nothing.
std::string RefusalOf(const SampleEntry& entry);

/// Why the module lists the track and cannot deliver it, or nothing.
std::string UndeliveredReason(const SampleEntry& entry);

/// What the entries' types tell, for a track without handler.
Kind KindOf(const std::vector<SampleEntry>& entries);

}  // namespace kivmp4::inspect
