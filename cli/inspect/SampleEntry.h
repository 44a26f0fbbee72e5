// What the entries of "stsd" say.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "inspect/Box.h"

namespace kivmp4::inspect {

enum class Kind { Video, Audio, Other };

/// One entry of "stsd".
struct SampleEntry {
    const Box* box = nullptr;
    std::string type;      // four bytes as in the file
    std::string original;  // of "encv" and "enca": the type before encryption, if told
    bool encrypted = false;
    uint32_t width = 0, height = 0;         // picture entries
    uint32_t channels = 0, sampleBits = 0;  // sound entries
    uint32_t sampleRate = 0;                // whole Hz, as stated in the entry
    const Box* avcCBox = nullptr;
    const Box* esdsBox = nullptr;
    Bytes avcC = {}, esds = {};             // contents
    Bytes specific = {};                    // of esds: the DecoderSpecificInfo, for AAC an AudioSpecificConfig
    uint32_t nalLengthSize = 0;             // of avcC: 1 to 4; 0 without
    std::vector<Bytes> sps = {}, pps = {};  // of avcC, without their lengths
    bool avcCBroken = false;                // its parameter sets run past its end
};

SampleEntry ReadSampleEntry(const File& file, const Box& box);

/// Why the module does not play what the entry describes, or nothing.
std::string RefusalOf(const SampleEntry& entry);

/// Why the module lists the track and cannot deliver it, or nothing.
std::string UndeliveredReason(const SampleEntry& entry);

/// What the entries' types tell, for a track without handler.
Kind KindOf(const std::vector<SampleEntry>& entries);

}  // namespace kivmp4::inspect
