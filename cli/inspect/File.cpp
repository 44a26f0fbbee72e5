// The bytes of a file: the one place that knows where the file ends.
#include "inspect/File.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kivmp4::inspect {

File::File(Bytes content) : memory(std::move(content)), size(memory.size()) {}

File::~File() {
    if (descriptor >= 0)
        close(descriptor);
}

int File::Open(const std::string& path) {
    // Opening a FIFO for reading would wait for a writer.
    descriptor =
        path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status = {};
    if (descriptor < 0 || fstat(descriptor, &status) != 0)
        return errno;
    if (!S_ISREG(status.st_mode))
        return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    size = static_cast<uint64_t>(status.st_size);
    return 0;
}

size_t File::Read(uint64_t offset, void* destination, size_t count) const {
    if (offset >= size || count == 0)
        return 0;
    count = static_cast<size_t>(std::min<uint64_t>(count, size - offset));
    if (descriptor < 0) {
        std::memcpy(destination, memory.data() + offset, count);
        return count;
    }
    size_t done = 0;
    while (done < count) {
        begun.fetch_add(1);
        const ssize_t got = pread(descriptor, static_cast<uint8_t*>(destination) + done, count - done,
                                  static_cast<off_t>(offset + done));
        const int error = errno;
        ended.fetch_add(1);
        if (got < 0 && error == EINTR)
            continue;
        if (got <= 0) {  // 0: the file has shrunk
            int none = 0;
            readError.compare_exchange_strong(none, got < 0 ? error : EIO);
            break;
        }
        done += static_cast<size_t>(got);
    }
    return done;
}

Bytes File::ReadBytes(uint64_t offset, uint64_t count, size_t limit) const {
    const uint64_t there = offset < size ? size - offset : 0;
    Bytes bytes(static_cast<size_t>(std::min({there, count, uint64_t{limit}})));
    bytes.resize(Read(offset, bytes.data(), bytes.size()));
    return bytes;
}

bool File::Is(const std::string& path) const {
    struct stat other = {}, own = {};
    return stat(path.c_str(), &other) == 0 && fstat(descriptor, &own) == 0 && other.st_dev == own.st_dev &&
           other.st_ino == own.st_ino;
}

}  // namespace kivmp4::inspect
