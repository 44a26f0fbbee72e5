// Debug output over the C library, whose standard error is unbuffered from the start.
#include "platform/DebugOutput.h"

#include <cstdio>

namespace kivmp4::platform {

void DebugPrint(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    DebugPrintList(format, arguments);
    va_end(arguments);
}

void DebugPrintList(const char* format, va_list arguments) { std::vfprintf(stderr, format, arguments); }

}  // namespace kivmp4::platform
