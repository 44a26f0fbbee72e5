// The thread that reads the file ahead: setup, the fill loop, exit.
#include <algorithm>
#include <utility>

#include "io/FileReader.h"
#include "platform/Spin.h"
#include "platform/Thread.h"
#include "support/Log.h"

namespace kivmp4 {
namespace {

constexpr uint32_t kIdleDelay = 90;   // microseconds
constexpr uint32_t kEmptyDelay = 10;  // while the player has nothing yet
constexpr size_t kBlockAlignment = 256;
constexpr uint32_t kSyncAttribute = 0x2000;

}  // namespace

void FileReader::Stream() {
    LogDebug(logLevel, "FileStreamingThread", 83, " File Streaming thread started....");
    if (SetUp()) {
        LearnFileSize();
        while (KeepGoing()) {
            if (flushed || readFailed) {
                platform::DelayMicroseconds(kIdleDelay);
                continue;
            }
            if (const int32_t position = pool.Allocate(); position >= 0)
                Fill(position);
            else
                WaitForSpace();
        }
        LogDebug(logLevel, "FileStreamingThread", 186, " File Streaming thread exited ");
    }
    if (!stopRequested)
        threadEnded = 1;
    progress.Notify();
}

bool FileReader::SetUp() {
    ioLock.Lock();
    constexpr int kShownSize = kBufferSize;
    bufferMemory = static_cast<uint8_t*>(ModuleAllocRaw(kBlockAlignment, kBufferSize));
    if (!bufferMemory) {
        ioLock.Unlock();
        LogError(logLevel, "FileStreamingThread", 92, " Cannot allocate enough memory %d ", kShownSize);
        return false;
    }
    if (!CreateBufferObjects()) {
        ioLock.Unlock();
        const unsigned long long address = reinterpret_cast<uintptr_t>(bufferMemory);
        LogError(logLevel, "FileStreamingThread", 99, " Failed to Initailize buffer for Reading %d to 0x%llx",
                 kShownSize, address);
        return false;
    }
    if (!stopRequested)
        running.exchange(1);
    if (stopRequested)  // the request came between the test and the exchange
        running.exchange(0);
    progress.Notify();
    ioLock.Unlock();
    return true;
}

bool FileReader::CreateBufferObjects() {
    const bool locked = bufferLock.Create("filebuffer") >= 0;
    spaceMutex = platform::MutexCreate("filebuffer", kSyncAttribute);
    spaceSignal = platform::ConditionCreate("filebuffer", kSyncAttribute, spaceMutex);
    pool.Create(bufferMemory, kBufferSize, kBlockSize);
    if (locked && spaceSignal >= 0) {  // which needs the mutex
        for (uint32_t position = 0; position < kBlocks; ++position) {
            descriptors[position].position = static_cast<int32_t>(position);
            descriptors[position].data = pool.At(static_cast<int32_t>(position));
        }
        return true;
    }
    DeleteBufferObjects();
    return false;
}

// Takes down whatever of the four exists.
void FileReader::DeleteBufferObjects() {
    pool.Delete(kBufferSize);
    bufferLock.Delete();
    platform::ConditionDelete(spaceSignal);
    platform::MutexDelete(spaceMutex);
    spaceSignal = platform::kNoId;
    spaceMutex = platform::kNoId;
}

// A player that told the size once and then takes it back is held to its word.
void FileReader::LearnFileSize() {
    while (GetFileSize() == 0 && announcedSize == 0 && KeepGoing())
        platform::DelayMicroseconds(kIdleDelay);
    fileSize = announcedSize.load();
}

// The player mostly takes a block in less time than a sleep and a wake-up need. Then comes the sleep:
// whoever changes one of the tested conditions signals afterwards with spaceMutex held, so no wake-up gets lost.
void FileReader::WaitForSpace() {
    if (platform::SpinUntil([this] { return pool.HasRoom() || !KeepGoing(); }))
        return;
    if (platform::MutexLock(spaceMutex) < 0) {
        platform::DelayMicroseconds(kIdleDelay);
        return;
    }
    if (KeepGoing() && !pool.HasRoom())
        platform::ConditionWait(spaceSignal);
    platform::MutexUnlock(spaceMutex);
}

// Reads the stretch at `fillPosition` into the block and queues it.
void FileReader::Fill(int32_t position) {
    platform::SpinUntil([this] { return ioWaiters == 0; });  // a jump makes this fill needless
    ioLock.Lock();
    if (!KeepGoing() || flushed) {
        pool.Free(position);
        ioLock.Unlock();
        return;
    }
    const bool afterJump = std::exchange(jumped, false);
    FileBlock& block = descriptors[position];
    block.offset = fillPosition;
    const int64_t left = std::max<int64_t>(fileSize - block.offset, 0);
    const uint32_t size = static_cast<uint32_t>(std::min<int64_t>(left, kBlockSize));
    const uint32_t count = size ? AskForFill(block, size) : 0;
    if (count == size) {
        block.length = static_cast<int32_t>(count);
        fillPosition += count;
        Append(block);
        if (fillPosition == fileSize)
            fillPosition = 0;  // goes on from the beginning, as far as the pool has room
    } else {
        LogDebug(logLevel, "FileStreamingThread", 159, " Cannot read requested data %d, can read only %d \n",
                 static_cast<int>(size), static_cast<int>(count));
        readFailed.exchange(1);
        pool.Free(position);
    }
    ioLock.Unlock();
    progress.Notify();
    if (afterJump)
        AwaitReading();
}

// Who jumps often takes one unit and jumps on. Reading ahead at once would only make the next jump wait.
void FileReader::AwaitReading() {
    platform::SpinUntil([this] { return served >= kBlockSize / 2 || blockCount == 0 || flushed || !KeepGoing(); });
}

// An answer of 0 means that the player has nothing yet.
uint32_t FileReader::AskForFill(const FileBlock& block, uint32_t size) {
    for (;;) {
        const uint32_t count = fileInterface->read(fileInterface->context, block.data, block.offset, size);
        if (count != 0 || !KeepGoing())
            return count;
        LogDebug(logLevel, "FileStreamingThread", 152, "INFO - BUFFERING??\n");
        platform::DelayMicroseconds(kEmptyDelay);
    }
}

void FileReader::Append(FileBlock& block) {
    bufferLock.Lock();
    block.next = nullptr;
    FileBlock** link = &blocks;
    while (*link)
        link = &(*link)->next;
    *link = &block;
    ++blockCount;
    bufferedEnd = fillPosition;
    bufferLock.Unlock();
}

}  // namespace kivmp4
