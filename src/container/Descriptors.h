// MPEG-4 descriptors inside an "esds" box (ISO/IEC 14496-1, 7.2.6 and 8.3.3).
#pragma once

#include <cstdint>

#include "support/ByteOrder.h"

namespace kivmp4 {

struct Descriptor {
    uint8_t tag = 0;
    ByteView body;
};

/// Reads the descriptor at the beginning of `bytes`: a tag, then the body's size in groups of seven bits.
/// @return whether the whole descriptor lies inside `bytes`; `out` is empty when not
[[nodiscard]] bool ReadDescriptor(ByteView bytes, Descriptor& out);

/// Bytes of an ES_Descriptor's body before its first sub-descriptor, by the flags in it.
size_t EsDescriptorPrefix(ByteView body);

}  // namespace kivmp4
