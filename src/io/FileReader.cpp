// The reading side of the streaming reader: open, positioned reads, trick mode, stop.
#include "io/FileReader.h"

#include <algorithm>
#include <cstring>

#include "platform/Thread.h"
#include "support/Log.h"

namespace kivmp4 {
namespace {

constexpr uint32_t kPollDelay = 90;  // microseconds
constexpr int32_t kPriorityStep = 15;
constexpr size_t kStackSize = 0x4000;

// The one reader that streams; the thread's entry finds it here.
std::atomic<FileReader*> streamingReader{nullptr};

int32_t ThreadPriority(int32_t base) { return base > INT32_MAX - kPriorityStep ? INT32_MAX : base + kPriorityStep; }

}  // namespace

int32_t FileReader::FileStreamingThread(void*) {
    streamingReader.load()->Stream();
    return 0;
}

ReadStatus FileReader::Open(const char* path, uint32_t mode, const FileInterface* file, int32_t basePriority) {
    fileInterface = file;
    if (file->open(file->context, path, mode) < 0) {
        LogError(logLevel, "Open", 209, " Open file failed: %s ", path);
        return ReadStatus::NotReady;
    }
    fileOpened = true;
    if (ioLock.Create("filereadwrite") < 0) {
        LogError(logLevel, "Open", 214, " File Create Critical failed, returing ERROR_MP4DEMUX_FAILED");
        return ReadStatus::NotReady;
    }
    streamingReader = this;
    const int32_t priority = ThreadPriority(basePriority);
    thread = platform::ThreadCreate("orvale FileStreaming", FileStreamingThread, priority, kStackSize);
    if (thread < 0 || platform::ThreadStart(thread, this) < 0) {
        LogError(logLevel, "Open", 229, " Failed to start Thread ");
        return ReadStatus::NotReady;
    }
    return ReadStatus::Done;
}

int64_t FileReader::GetFileSize() {
    const int64_t size = fileInterface->getSize(fileInterface->context);
    if (size <= 0)
        return 0;
    announcedSize = size;
    return size;
}

// Done while the thread runs. A thread that ended by itself will never bring what a wait is for.
ReadStatus FileReader::State() const {
    if (threadEnded)
        return ReadStatus::Failed;
    return running ? ReadStatus::Done : ReadStatus::NotReady;
}

// As the thread learnt it; before that, as the player told last.
int64_t FileReader::KnownEnd() const {
    const int64_t learnt = fileSize;
    return learnt ? learnt : announcedSize.load();
}

bool FileReader::CrossesEnd(int64_t offset, uint32_t size) const {
    const uint64_t start = static_cast<uint64_t>(offset), end = static_cast<uint64_t>(KnownEnd());
    return end != 0 && (start > end || size > end - start);
}

ReadStatus FileReader::RefuseBeyondEnd(int64_t offset, uint32_t size) const {
    LogError(logLevel, "Read", 256, "Read():  File End reached. Cannot get %d at %lld as it crosses %lld \n",
             static_cast<int>(size), static_cast<long long>(offset), static_cast<long long>(KnownEnd()));
    return ReadStatus::Failed;
}

ReadStatus FileReader::Read(void* destination, int64_t offset, uint32_t size, uint32_t& delivered) {
    delivered = 0;
    if (const ReadStatus state = WaitForStart(); state != ReadStatus::Done)
        return state;
    if (readFailed)
        return ReadStatus::Failed;
    if (CrossesEnd(offset, size))
        return RefuseBeyondEnd(offset, size);
    if (size == 0)  // the player is never asked for nothing: it could only answer "nothing yet"
        return ReadStatus::Done;
    if (size >= kBlockSize || flushed)
        return ReadRaw(destination, offset, size, delivered);

    const ReadStatus status = ReadBuffered(static_cast<uint8_t*>(destination), offset, size);
    if (status == ReadStatus::Done)
        delivered = size;
    return status;
}

// A count that is not the size asked for is for the caller to judge.
ReadStatus FileReader::ReadRaw(void* destination, int64_t offset, uint32_t size, uint32_t& delivered) {
    LockIo();
    for (;;) {
        delivered = fileInterface->read(fileInterface->context, destination, offset, size);
        LogDebug(logLevel, "Read", 269, "RAW READ:  Size: %d, Position: %lld  \n", static_cast<int>(size),
                 static_cast<long long>(offset));
        if (delivered != 0)
            break;
        platform::DelayMicroseconds(kPollDelay);
        if (!running)
            break;
    }
    ioLock.Unlock();
    return ReadStatus::Done;
}

ReadStatus FileReader::ReadBuffered(uint8_t* destination, int64_t offset, uint32_t size) {
    if (const ReadStatus status = TakeQueue(); status != ReadStatus::Done)
        return status;
    // Behind the wrap to the file's start the range looks inverted, and a read near the end jumps: meant.
    if (offset < blocks->offset || offset > bufferedEnd) {
        bufferLock.Unlock();
        if (const ReadStatus status = Jump(offset, size); status != ReadStatus::Done)
            return status;
        if (const ReadStatus status = TakeQueue(); status != ReadStatus::Done)
            return status;
    }
    return CopyOut(destination, offset, size);
}

// Right after Open the thread is still setting itself up. @return as State, after one delay at the longest
ReadStatus FileReader::WaitForStart() {
    const uint32_t seen = progress.Changes();  // before the look, so that no change falls between the two
    const ReadStatus state = State();
    if (state != ReadStatus::NotReady || stopRequested)
        return state;
    progress.Wait(seen, kPollDelay);
    return State();
}

// The thread brings data unless it is gone, its fill failed, or it idles because of a flush.
ReadStatus FileReader::WaitForData() {
    while (blockCount <= 0) {
        const uint32_t seen = progress.Changes();
        if (readFailed)
            return ReadStatus::Failed;
        if (flushed)
            return ReadStatus::NotReady;
        if (blockCount > 0)
            break;
        SignalSpace();
        progress.Wait(seen, kPollDelay);
        if (const ReadStatus state = State(); state != ReadStatus::Done)
            return state;
    }
    return State();
}

// For all but the thread: they go before its next fill.
void FileReader::LockIo() {
    ++ioWaiters;
    ioLock.Lock();
    --ioWaiters;
}

// On Done bufferLock is held and a block is queued.
ReadStatus FileReader::TakeQueue() {
    for (;;) {
        bufferLock.Lock();
        if (blocks)
            return ReadStatus::Done;
        bufferLock.Unlock();
        if (const ReadStatus status = WaitForData(); status != ReadStatus::Done)
            return status;
    }
}

// Empties the queue and sends the thread to `offset`.
ReadStatus FileReader::Jump(int64_t offset, uint32_t size) {
    LockIo();
    if (CrossesEnd(offset, size)) {  // the thread may have learnt a smaller size than the first test went by
        ioLock.Unlock();
        return RefuseBeyondEnd(offset, size);
    }
    fillPosition = offset;
    jumped = true;
    bufferLock.Lock();
    bufferedEnd = offset;
    served = 0;
    bufferLock.Unlock();
    DropAll();
    ioLock.Unlock();
    return ReadStatus::Done;
}

// Copies from the head block and those behind it, dropping every block that the request reaches past. bufferLock is held
// on entry and released on every way out; while it waits for the thread's next block it is not held.
ReadStatus FileReader::CopyOut(uint8_t* destination, int64_t offset, uint32_t size) {
    const int64_t requestEnd = offset + size;
    uint32_t copied = 0;
    int64_t skip = offset - blocks->offset;
    bool dropped = false;
    while (requestEnd > blocks->offset + blocks->length) {
        if (const int64_t usable = blocks->length - skip; usable > 0) {
            std::memcpy(destination + copied, blocks->data + skip, static_cast<size_t>(usable));
            copied += static_cast<uint32_t>(usable);
            skip = 0;
        } else {
            skip -= blocks->length;  // the block lies wholly before the request
        }
        const int64_t expected = blocks->offset + blocks->length;
        DropHead();
        dropped = true;
        if (!blocks) {
            bufferLock.Unlock();
            SignalSpace();
            if (const ReadStatus status = TakeQueue(); status != ReadStatus::Done)
                return status;
        }
        if (blocks->offset != expected) {  // the queue was flushed and refilled meanwhile
            bufferLock.Unlock();
            return ReadStatus::NotReady;
        }
    }
    std::memcpy(destination + copied, blocks->data + skip, size - copied);
    served.store(served.load(std::memory_order_relaxed) + size, std::memory_order_relaxed);
    bufferLock.Unlock();
    if (dropped)
        SignalSpace();
    return ReadStatus::Done;
}

// Gives the oldest block back to the pool; bufferLock is held. SignalSpace follows once it is not.
void FileReader::DropHead() {
    FileBlock* block = blocks;
    blocks = block->next;
    --blockCount;
    pool.Free(block->position);
}

void FileReader::DropAll() {
    bufferLock.Lock();
    while (blocks)
        DropHead();
    bufferLock.Unlock();
    SignalSpace();
}

void FileReader::SignalSpace() {
    if (platform::MutexLock(spaceMutex) < 0)
        return;
    platform::ConditionSignal(spaceSignal);
    platform::MutexUnlock(spaceMutex);
}

void FileReader::Flush() {
    if (flushed.exchange(1))
        return;
    progress.Notify();
    LockIo();
    DropAll();
    ioLock.Unlock();
}

void FileReader::ResumeBuffering() { flushed.exchange(0); }

void FileReader::Stop() {
    stopRequested = 1;
    running.exchange(0);
    progress.Notify();
    LockIo();
    DropAll();
    ioLock.Unlock();
    platform::ThreadWait(thread);  // fails at once for a thread that was never started
    platform::ThreadDelete(thread);
    if (fileOpened)
        fileInterface->close(fileInterface->context);
    fileOpened = false;
}

void FileReader::Teardown() {
    ioLock.Delete();
    DeleteBufferObjects();
    ModuleFree(bufferMemory);
    ModuleDelete(this);
}

}  // namespace kivmp4
