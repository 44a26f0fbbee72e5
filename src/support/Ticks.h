// The unit of all times that leave the module.
#pragma once

#include <cstdint>

namespace kivmp4 {

constexpr uint32_t kTicksPerSecond = 90000;

}  // namespace kivmp4
