// The file that the module reads: a regular file, as fast as it is or slowed down to a given device.
#pragma once

#include <KivMp4.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace player {

/// One file on one device. The module calls `read` from two threads, one at a time; Abort may come from any thread.
class Device {
public:
    /// @param latency    seconds that each request takes before its first byte, 0 for none
    /// @param bandwidth  bytes a second, 0 for no limit
    Device(double latency, double bandwidth);
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    const FileInterface* Functions() const { return &functions; }
    /// Ends a read under way and fails all later ones, so that closing need not wait for a slow device.
    void Abort();

private:
    static int32_t Open(void* context, const char* path, uint32_t mode);
    static int32_t Close(void* context);
    static uint32_t Read(void* context, void* destination, int64_t offset, uint32_t size);
    static int64_t GetSize(void* context);
    // Waits for as long as the device would need. @return false when aborted
    bool Delay(uint32_t size);

    const double latency, bandwidth;
    FileInterface functions;
    int descriptor = -1;  // owned between Open and Close
    int64_t fileSize = 0;
    std::mutex mutex;  // guards `aborted`; Abort signals after it has set it
    std::condition_variable changed;
    bool aborted = false;
};

}  // namespace player
