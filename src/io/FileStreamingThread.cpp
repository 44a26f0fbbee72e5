// The thread that reads the file ahead: setup, the fill loop, exit.
#include <algorithm>

#include "io/FileReader.h"
#include "platform/Clock.h"
#include "support/Log.h"

namespace kivmp4 {
namespace {

constexpr uint32_t kEmptyDelay = 10;  // microseconds, while the player has no bytes yet
constexpr size_t kBlockAlignment = 256;

}  // namespace

void FileReader::FileStreamingThread(void* reader) { static_cast<FileReader*>(reader)->Stream(); }

void FileReader::Stream() {
    LogDebug(logLevel, "FileStreamingThread", 83, " File Streaming thread started....");
    if (!SetUp()) {
        setupFailed = true;
        queue.Wake();
        return;
    }
    LearnFileSize();
    while (!stopRequested) {
        queue.AwaitRoom([this] { return MayFill(); }, [this] { return stopRequested.load(); });
        Fill();
    }
    LogDebug(logLevel, "FileStreamingThread", 186, " File Streaming thread exited ");
}

bool FileReader::SetUp() {
    constexpr int kShownSize = BlockQueue::kBufferSize;
    bufferMemory = static_cast<uint8_t*>(ModuleAllocRaw(kBlockAlignment, BlockQueue::kBufferSize));
    if (!bufferMemory) {
        LogError(logLevel, "FileStreamingThread", 92, " Cannot allocate enough memory %d ", kShownSize);
        return false;
    }
    if (!queue.Create(bufferMemory)) {
        const unsigned long long address = reinterpret_cast<uintptr_t>(bufferMemory);
        LogError(logLevel, "FileStreamingThread", 99, " Failed to Initailize buffer for Reading %d to 0x%llx",
                 kShownSize, address);
        return false;
    }
    running = true;
    queue.Wake();
    return true;
}

// A player that told the size once and then takes it back is held to its word.
void FileReader::LearnFileSize() {
    while (GetFileSize() == 0 && announcedSize == 0 && !stopRequested)
        platform::DelayMicroseconds(kRetryDelay);
    fileSize = announcedSize.load();
}

bool FileReader::MayFill() const { return !flushed && !readFailed && callers == 0; }

// Brings the stretch at `fillPosition` into the queue. What the thread waited for may be gone by the time it has ioLock.
void FileReader::Fill() {
    const platform::LockGuard guard(ioLock);
    if (stopRequested || !MayFill() || !queue.WantsAnother())
        return;
    const int64_t position = queue.TakeBack(fillPosition);
    if (position != fillPosition)
        fillPosition = AfterFill(position);
    else if (FileBlock* block = queue.Take())
        FillFromPlayer(*block);
}

// After the block that ends the file, filling goes on from the beginning, as far as there are blocks.
int64_t FileReader::AfterFill(int64_t position) const { return position == fileSize ? 0 : position; }

void FileReader::FillFromPlayer(FileBlock& block) {
    const int64_t start = platform::MonotonicTime();
    block.offset = fillPosition;
    const int64_t left = std::max<int64_t>(fileSize - fillPosition, 0);
    const uint32_t size = static_cast<uint32_t>(std::min<int64_t>(left, BlockQueue::kBlockSize));
    const uint32_t count = size ? AskForFill(block, size) : 0;
    if (count == size) {
        block.length = static_cast<int32_t>(count);
        fillPosition = AfterFill(block.End());
        queue.Append(block, platform::MonotonicTime() - start);
        return;
    }
    LogDebug(logLevel, "FileStreamingThread", 159, " Cannot read requested data %d, can read only %d \n",
             static_cast<int>(size), static_cast<int>(count));
    queue.GiveBack(block);
    readFailed = true;
    queue.Wake();
}

// An answer of 0 means that the player has nothing yet.
uint32_t FileReader::AskForFill(const FileBlock& block, uint32_t size) {
    for (;;) {
        const uint32_t count = fileInterface->read(fileInterface->context, block.data, block.offset, size);
        if (count != 0 || stopRequested)
            return count;
        LogDebug(logLevel, "FileStreamingThread", 152, "INFO - BUFFERING??\n");
        platform::DelayMicroseconds(kEmptyDelay);
    }
}

}  // namespace kivmp4
