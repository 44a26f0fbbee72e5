// Diagnostics: four calls that print to the platform's debug output as far as the object's log level admits.
#pragma once

#include <cstdint>

namespace kivmp4 {

/// All four: level of the object that logs, operation that it comes from, fixed line number, format and arguments.
/// Which level admits which call: 1 errors, 2 errors and warnings, 3 information only, 4 everything; any other nothing.
/// A line is written in three steps without a lock: lines of different threads may mix.
[[gnu::format(printf, 4, 5)]] void LogError(int32_t level, const char* function, int32_t line, const char* format, ...);
[[gnu::format(printf, 4, 5)]] void LogWarning(int32_t level, const char* function, int32_t line, const char* format,
                                              ...);
[[gnu::format(printf, 4, 5)]] void LogDebug(int32_t level, const char* function, int32_t line, const char* format, ...);
/// Prints the text alone, without function and line.
[[gnu::format(printf, 4, 5)]] void LogInfo(int32_t level, const char* function, int32_t line, const char* format, ...);

}  // namespace kivmp4
