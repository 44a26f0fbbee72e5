// A player's functions over a file on disk.
#pragma once

#include <KivMp4.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kivmp4::bench {

struct DiskFile {
    int descriptor = -1;
    int64_t size = 0;

    /// @return the functions over this file, which must outlive the handle
    FileInterface Interface() {
        return {
            this,
            [](void* context, const char* path, uint32_t) {
                DiskFile& file = *static_cast<DiskFile*>(context);
                struct stat status;
                file.descriptor = open(path, O_RDONLY);
                if (file.descriptor < 0 || fstat(file.descriptor, &status) != 0)
                    return -1;
                file.size = status.st_size;
                return 0;
            },
            [](void* context) { return close(static_cast<DiskFile*>(context)->descriptor); },
            [](void* context, void* destination, int64_t offset, uint32_t wanted) {
                const ssize_t count = pread(static_cast<DiskFile*>(context)->descriptor, destination, wanted, offset);
                return count == static_cast<ssize_t>(wanted) ? wanted : UINT32_MAX;
            },
            [](void* context) { return static_cast<DiskFile*>(context)->size; },
        };
    }
};

}  // namespace kivmp4::bench
