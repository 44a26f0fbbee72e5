// Makes text from files and paths fit for a terminal.
#include "print/Text.h"

#include <fmt/format.h>

namespace kivmp4::cli {

namespace {

constexpr char kDigits[] = "0123456789abcdef";

// Characters that reorder or hide the text around them.
bool IsInvisible(uint32_t code) {
    return (code >= 0x200B && code <= 0x200F) || (code >= 0x2028 && code <= 0x202E) ||
           (code >= 0x2060 && code <= 0x206F) || code == 0xFEFF;
}

// Length of the printable character at the front of `text`, 0 when there is none.
size_t PrintableLength(std::string_view text) {
    const auto byte = [&](size_t at) { return static_cast<uint32_t>(static_cast<unsigned char>(text[at])); };
    const uint32_t lead = byte(0);
    if (lead < 0x80)
        return lead >= 0x20 && lead != 0x7F && lead != '\\' ? 1 : 0;

    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
        return 0;
    uint32_t code = lead & (0x7Fu >> length);
    for (size_t i = 1; i < length; i++) {
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
        code = code << 6 | (byte(i) & 0x3F);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return overlong || surrogate || code < 0xA0 || code > 0x10FFFF || IsInvisible(code) ? 0 : length;
}

}  // namespace

std::string Escape(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    while (!text.empty()) {
        if (const size_t length = PrintableLength(text)) {
            escaped += text.substr(0, length);
            text.remove_prefix(length);
            continue;
        }
        const auto byte = static_cast<unsigned char>(text[0]);
        escaped += "\\x";
        escaped += kDigits[byte >> 4];
        escaped += kDigits[byte & 15];
        text.remove_prefix(1);
    }
    return escaped;
}

std::string Hex(const uint8_t* bytes, size_t count) {
    std::string text;
    for (size_t i = 0; i < count; i++) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    return text;
}

std::string FormatBytes(uint64_t bytes) {
    if (bytes < 1024)
        return Count(bytes, "byte");
    constexpr const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB"};
    double value = static_cast<double>(bytes) / 1024;
    size_t unit = 0;
    for (; value >= 1024 && unit < 3; unit++)
        value /= 1024;
    return fmt::format("{:.1f} {}", value, kUnits[unit]);
}

std::string FormatRate(double bitsPerSecond) {
    return bitsPerSecond < 1e7 ? fmt::format("{:.0f} kb/s", bitsPerSecond / 1e3)
                               : fmt::format("{:.1f} Mb/s", bitsPerSecond / 1e6);
}

std::string Count(uint64_t number, std::string_view noun) {
    return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

}  // namespace kivmp4::cli
