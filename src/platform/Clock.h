// The time that waits are measured in, and the delay of the calling thread.
#pragma once

#include <cstdint>

namespace kivmp4::platform {

/// @return nanoseconds since some moment in the past; never goes back
int64_t MonotonicTime();

/// For polling what nobody can signal; whatever this module can signal is waited for with an Event.
void DelayMicroseconds(uint32_t microseconds);

}  // namespace kivmp4::platform
