// A stream to write to: standard output or a file, each write checked.
#include "print/Output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "print/Failure.h"
#include "print/Text.h"

namespace kivmp4::cli {

namespace {

bool WantsColour(Colour colour) {
    if (colour != Colour::Auto)
        return colour == Colour::Always;
    const char* none = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) && !(none && *none) && terminal && std::strcmp(terminal, "dumb") != 0;
}

const char* CodeOf(Paint paint) {
    switch (paint) {
        case Paint::Bold: return "1";
        case Paint::Faint: return "2";
        case Paint::Red: return "1;31";
        case Paint::Yellow: return "33";
        case Paint::Cyan: return "36";
    }
    return "0";
}

// Devices and pipes are written to as they are: nothing of theirs can be half written.
bool IsSpecial(const std::string& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
}

}  // namespace

Output::Output(Colour colour) : stream(stdout), name("standard output"), coloured(WantsColour(colour)) {}

Output::Output(const std::string& target, bool replace) : stream(stdout), path(target), name(Escape(target)) {
    if (target == "-") {
        name = "standard output";
        return;
    }
    std::error_code error;
    const bool special = IsSpecial(path);
    if (!replace && !special && std::filesystem::exists(path, error))
        throw Failure{kCannotWrite, name + " exists", "--force replaces it, -o - writes to standard output"};
    const std::string part = special ? path : path + ".part";
    if (!special)
        unfinished = std::make_unique<Unfinished>(part);
    stream = std::fopen(part.c_str(), "wb");
    if (!stream)
        throw Failure{kCannotWrite, name + ": cannot create: " + std::strerror(errno), "choose another place"};
}

Output::~Output() {
    if (stream && stream != stdout)
        std::fclose(stream);
}

void Output::Write(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stream) != text.size())
        Refused(errno);
}

void Output::Write(const uint8_t* bytes, size_t count) {
    Write(std::string_view(reinterpret_cast<const char*>(bytes), count));
}

void Output::Finish() {
    if (std::fflush(stream) != 0)
        Refused(errno);
    if (stream == stdout)
        return;
    // Some file systems tell of a full disk only here.
    const int closed = std::fclose(stream);
    stream = nullptr;
    if (closed != 0)
        Refused(errno);
    if (const int error = unfinished ? unfinished->Finish(path) : 0)
        Refused(error);
}

std::string Output::Painted(Paint paint, const std::string& text) const {
    return coloured ? fmt::format("\033[{}m{}\033[0m", CodeOf(paint), text) : text;
}

void Output::Refused(int error) const {
    // Whoever stops reading a listing has seen enough: no message for "kivmp4 packets clip.mp4 | head".
    if (stream == stdout && error == EPIPE)
        throw Failure{kReaderLeft, ""};
    throw Failure{kCannotWrite, name + ": cannot write: " + std::strerror(error), "make room and try again"};
}

}  // namespace kivmp4::cli
