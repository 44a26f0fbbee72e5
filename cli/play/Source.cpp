// The file that a command works on: its name, its bytes, and what its boxes say.
#include "play/Source.h"

#include <cerrno>
#include <cstring>

#include "print/Text.h"

namespace kivmp4::cli {

Source::Source(const std::string& given) : path(given), name(given == "-" ? "standard input" : Escape(given)) {
    const int error = file.Open(path);
    if (error == EISDIR)
        throw Refuse(kCannotRead, "is a directory", "name a file in it");
    if (error == EINVAL)
        throw Refuse(kCannotRead, "is not a regular file", "copy it to one first");
    if (error)
        throw Refuse(kCannotRead, std::string("cannot open: ") + std::strerror(error),
                     "check the name and the permissions");
}

const inspect::Movie& Source::Movie() const {
    if (!movie)
        movie = std::make_unique<inspect::Movie>(file);
    return *movie;
}

const inspect::Track* Source::Track(uint32_t index) const {
    for (const inspect::Track& track : Movie().tracks) {
        if (track.refusal.empty() && index-- == 0)
            return &track;
    }
    return nullptr;
}

Failure Source::Refuse(ExitCode exitCode, const std::string& message, const std::string& hint) const {
    return {exitCode, message, hint, name};
}

void Source::RequireReads() const {
    if (const int error = file.ReadError())
        throw Refuse(kCannotRead, std::string("cannot read: ") + std::strerror(error), "check the disk");
}

}  // namespace kivmp4::cli
