// Values that threads share without a lock. The name is ours so that a test can put a scheduler's in its place.
#pragma once

#include <atomic>

namespace kivmp4::platform {

template <typename T>
using Atomic = std::atomic<T>;

}  // namespace kivmp4::platform
