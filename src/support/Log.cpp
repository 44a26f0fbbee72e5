// Level filter and line layout of the diagnostics.
#include "support/Log.h"

#include <cstdarg>

#include "platform/DebugOutput.h"

namespace kivmp4 {
namespace {

[[gnu::format(printf, 4, 0)]] void Print(char kind, const char* function, int32_t line, const char* format,
                                         va_list arguments) {
    platform::DebugPrint("%c/ %s [%d]: ", kind, function, line);
    platform::DebugPrintList(format, arguments);
    platform::DebugPrint("\n");
}

}  // namespace

void LogError(int32_t level, const char* function, int32_t line, const char* format, ...) {
    if (level != 1 && level != 2 && level != 4)
        return;
    va_list arguments;
    va_start(arguments, format);
    Print('E', function, line, format, arguments);
    va_end(arguments);
}

void LogWarning(int32_t level, const char* function, int32_t line, const char* format, ...) {
    if (level != 2 && level != 4)
        return;
    va_list arguments;
    va_start(arguments, format);
    Print('W', function, line, format, arguments);
    va_end(arguments);
}

void LogDebug(int32_t level, const char* function, int32_t line, const char* format, ...) {
    if (level != 4)
        return;
    va_list arguments;
    va_start(arguments, format);
    Print('D', function, line, format, arguments);
    va_end(arguments);
}

void LogInfo(int32_t level, const char*, int32_t, const char* format, ...) {
    if (level != 3 && level != 4)
        return;
    va_list arguments;
    va_start(arguments, format);
    platform::DebugPrintList(format, arguments);
    platform::DebugPrint("\n");
    va_end(arguments);
}

}  // namespace kivmp4
