// Marks memory of our own heaps as forbidden or allowed, so that AddressSanitizer sees inside them.
#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define KIVMP4_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KIVMP4_ASAN 1
#endif
#endif

#ifdef KIVMP4_ASAN
#include <sanitizer/asan_interface.h>
#define KIVMP4_NO_ASAN __attribute__((no_sanitize_address))
#else
#define KIVMP4_NO_ASAN
#endif

namespace kivmp4::platform {

#ifdef KIVMP4_ASAN
inline void Forbid(const void* memory, size_t size) { __asan_poison_memory_region(memory, size); }
inline void Allow(const void* memory, size_t size) { __asan_unpoison_memory_region(memory, size); }
#else
inline void Forbid(const void*, size_t) {}
inline void Allow(const void*, size_t) {}
#endif

}  // namespace kivmp4::platform
