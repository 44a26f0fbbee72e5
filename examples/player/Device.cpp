// Reads at offsets, and waits as a slow device would make its caller wait.
#include "Device.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

namespace player {

Device::Device(double seconds, double bytesPerSecond)
    : latency(seconds), bandwidth(bytesPerSecond), functions{this, Open, Close, Read, GetSize} {}

void Device::Abort() {
    const std::lock_guard lock(mutex);
    aborted = true;
    changed.notify_all();
}

int32_t Device::Open(void* context, const char* path, uint32_t) {
    Device& device = *static_cast<Device*>(context);
    struct stat status;
    device.descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (device.descriptor < 0)
        return -1;
    if (fstat(device.descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        device.fileSize = status.st_size;
        return 0;
    }
    Close(context);
    return -1;
}

int32_t Device::Close(void* context) {
    Device& device = *static_cast<Device*>(context);
    close(device.descriptor);
    device.descriptor = -1;
    return 0;
}

uint32_t Device::Read(void* context, void* destination, int64_t offset, uint32_t size) {
    Device& device = *static_cast<Device*>(context);
    if (!device.Delay(size))
        return KIVMP4_READ_FAILED;
    uint32_t done = 0;
    while (done < size) {
        const ssize_t got =
            pread(device.descriptor, static_cast<char*>(destination) + done, size - done, offset + done);
        if (got <= 0)  // 0 too: the file has been cut since its size was told
            return KIVMP4_READ_FAILED;
        done += static_cast<uint32_t>(got);
    }
    return size;
}

int64_t Device::GetSize(void* context) { return static_cast<Device*>(context)->fileSize; }

bool Device::Delay(uint32_t size) {
    const double seconds = latency + (bandwidth > 0 ? size / bandwidth : 0);
    std::unique_lock lock(mutex);
    if (seconds > 0)
        changed.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return aborted; });
    return !aborted;
}

}  // namespace player
