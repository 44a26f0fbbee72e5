// A stream to write to: standard output or a file, each write checked.
#include "Output.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "Failure.h"
#include "Text.h"

namespace kivmp4::cli {

Output::Output() : stream(stdout), name("standard output") {}

Output::Output(const std::string& path) : stream(std::fopen(path.c_str(), "wb")), name(Escape(path)) {
    if (!stream)
        throw Failure{kCannotRead, name + ": cannot create: " + std::strerror(errno) + "; choose another directory"};
}

Output::~Output() {
    if (stream && stream != stdout)
        std::fclose(stream);
}

void Output::Print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int written = std::vfprintf(stream, format, arguments);
    va_end(arguments);
    if (written < 0)
        Refused();
}

void Output::Write(const uint8_t* bytes, size_t count) {
    if (std::fwrite(bytes, 1, count, stream) != count)
        Refused();
}

void Output::Finish() {
    if (std::fflush(stream) != 0)
        Refused();
    if (stream == stdout)
        return;
    // Some file systems tell of a full disk only here.
    const int closed = std::fclose(stream);
    stream = nullptr;
    if (closed != 0)
        Refused();
}

void Output::Refused() const {
    const int error = errno;
    // Whoever stops reading a listing has seen enough: no message for "kivmp4 packets clip.mp4 | head".
    if (stream == stdout && error == EPIPE)
        throw Failure{kReaderLeft, ""};
    throw Failure{kCannotRead, name + ": cannot write: " + std::strerror(error) + "; make room and try again"};
}

}  // namespace kivmp4::cli
