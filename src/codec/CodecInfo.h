// Comparison of the public codec record.
#pragma once

#include "KivMp4.h"

namespace kivmp4 {

/// Whether two records describe the same configuration to a decoder. Language, bit rates, offsets and the H.264 summary
/// take no part.
bool Equals(const CodecInfo& a, const CodecInfo& b);

}  // namespace kivmp4
