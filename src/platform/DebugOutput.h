// The platform's debug output: formatted text to standard error, unbuffered.
#pragma once

#include <cstdarg>

namespace kivmp4::platform {

[[gnu::format(printf, 1, 2)]] void DebugPrint(const char* format, ...);
[[gnu::format(printf, 1, 0)]] void DebugPrintList(const char* format, va_list arguments);

}  // namespace kivmp4::platform
