// Text for messages about boxes.
#include "inspect/Format.h"

#include <cstdarg>
#include <cstdio>

namespace kivmp4::inspect {

std::string Format(const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string TypeText(const std::string& type) {
    std::string text;
    for (const char c : type) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = byte >= 0x20 && byte <= 0x7E && c != '\\';
        text += plain ? std::string(1, c) : Format("\\x%02x", byte);
    }
    return text;
}

}  // namespace kivmp4::inspect
