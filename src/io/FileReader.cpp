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

FileReader::FileReader(int32_t level) : logLevel(level) { queueLock.Create("DemuxStlHandler"); }

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

bool FileReader::CrossesEnd(int64_t offset, uint32_t size) const {
    const uint64_t learnt = static_cast<uint64_t>(fileSize.load());
    const uint64_t end = learnt ? learnt : static_cast<uint64_t>(announcedSize.load());
    const uint64_t start = static_cast<uint64_t>(offset);
    return end != 0 && (start > end || size > end - start);
}

ReadStatus FileReader::RefuseBeyondEnd(int64_t offset, uint32_t size) const {
    const int64_t end = fileSize ? fileSize : announcedSize;
    LogError(logLevel, "Read", 256, "Read():  File End reached. Cannot get %d at %lld as it crosses %lld \n",
             static_cast<int>(size), static_cast<long long>(offset), static_cast<long long>(end));
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
    if (const ReadStatus state = State(); state != ReadStatus::Done)
        return state;
    if (ioLock.Lock() < 0)
        return ReadStatus::NotReady;
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
    return ioLock.Unlock() < 0 ? ReadStatus::NotReady : ReadStatus::Done;
}

ReadStatus FileReader::ReadBuffered(uint8_t* destination, int64_t offset, uint32_t size) {
    if (ReadInsideHead(destination, offset, size))
        return ReadStatus::Done;
    if (const ReadStatus status = WaitForData(); status != ReadStatus::Done)
        return status;
    if (const ReadStatus status = LookAtHead(); status != ReadStatus::Done)
        return status;
    // Behind the wrap to the file's start the range looks inverted, and a read near the end jumps: meant.
    if (bufferedStart > offset || offset > bufferedEnd)
        if (const ReadStatus status = Jump(offset, size); status != ReadStatus::Done)
            return status;
    return Serve(destination, offset, size);
}

// The common case: the oldest block has all of it, and stays.
bool FileReader::ReadInsideHead(uint8_t* destination, int64_t offset, uint32_t size) {
    if (queueLock.Lock() < 0)
        return false;
    const FileBlock* head = blocks;
    const bool inside = head && offset >= head->offset && offset <= bufferedEnd &&
                        size <= head->offset + head->length - offset;
    if (inside) {
        bufferedStart = head->offset;
        std::memcpy(destination, head->data + (offset - head->offset), size);
    }
    queueLock.Unlock();
    return inside;
}

// Right after Open the thread is still setting itself up. @return as State, after one delay at the longest
ReadStatus FileReader::WaitForStart() {
    const uint32_t seen = progress.Changes();
    const ReadStatus state = State();
    if (state != ReadStatus::NotReady || stopRequested || thread < 0)
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

// On Done ioLock is held and the thread is to keep going.
ReadStatus FileReader::TakeIoLock() {
    if (ioLock.Lock() < 0)
        return ReadStatus::NotReady;
    const ReadStatus state = State();
    if (state != ReadStatus::Done)
        ioLock.Unlock();
    return state;
}

// Notes where the oldest block begins.
ReadStatus FileReader::LookAtHead() {
    if (const ReadStatus status = TakeIoLock(); status != ReadStatus::Done)
        return status;
    const bool found = blocks != nullptr;
    if (found)
        bufferedStart = blocks->offset;
    return ioLock.Unlock() < 0 || !found ? ReadStatus::NotReady : ReadStatus::Done;
}

// Empties the queue and sends the thread to `offset`.
ReadStatus FileReader::Jump(int64_t offset, uint32_t size) {
    if (const ReadStatus status = TakeIoLock(); status != ReadStatus::Done)
        return status;
    if (CrossesEnd(offset, size)) {  // the thread may have learnt a smaller size than the first test went by
        ioLock.Unlock();
        return RefuseBeyondEnd(offset, size);
    }
    fillPosition = offset;
    bufferedEnd = offset;
    DropAll();
    SignalSpace();
    if (ioLock.Unlock() < 0)
        return ReadStatus::NotReady;
    if (const ReadStatus status = WaitForData(); status != ReadStatus::Done)
        return status;
    return LookAtHead();
}

ReadStatus FileReader::Serve(uint8_t* destination, int64_t offset, uint32_t size) {
    if (const ReadStatus status = TakeIoLock(); status != ReadStatus::Done)
        return status;
    return CopyOut(destination, offset, size);
}

// Copies from the head block and those behind it, dropping every block that the request reaches past. ioLock is held on
// entry and released on every way out; while it waits for the thread's next block it is not held.
ReadStatus FileReader::CopyOut(uint8_t* destination, int64_t offset, uint32_t size) {
    const int64_t requestEnd = offset + size;
    uint32_t copied = 0;
    int64_t skip = blocks ? offset - blocks->offset : -1;
    while (blocks && skip >= 0 && requestEnd > blocks->offset + blocks->length) {
        if (const int64_t usable = blocks->length - skip; usable > 0) {
            std::memcpy(destination + copied, blocks->data + skip, static_cast<size_t>(usable));
            copied += static_cast<uint32_t>(usable);
            skip = 0;
        } else {
            skip -= blocks->length;  // the block lies wholly before the request
        }
        const int64_t expected = blocks->offset + blocks->length;
        const bool dropped = DropHead();
        if (ioLock.Unlock() < 0 || !dropped)
            return ReadStatus::NotReady;
        if (const ReadStatus status = WaitForData(); status != ReadStatus::Done)
            return status;
        if (const ReadStatus status = TakeIoLock(); status != ReadStatus::Done)
            return status;
        if (!blocks || blocks->offset != expected)  // flushed and refilled meanwhile
            skip = -1;
        else
            bufferedStart = blocks->offset;
    }
    const bool inside = blocks && skip >= 0 && skip <= kBlockSize;
    if (inside)
        std::memcpy(destination + copied, blocks->data + skip, size - copied);
    return ioLock.Unlock() < 0 || !inside ? ReadStatus::NotReady : ReadStatus::Done;
}

// Gives the oldest block back to the pool; ioLock is held, or the thread is gone. @return false when it stays queued
bool FileReader::DropHead() {
    if (bufferLock.Lock() < 0)
        return false;
    FileBlock* block = blocks;
    queueLock.Lock();
    blocks = block->next;
    --blockCount;
    queueLock.Unlock();
    pool.Free(block->position);
    bufferLock.Unlock();
    SignalSpace();
    return true;
}

void FileReader::DropAll() {
    while (blocks && DropHead()) {
    }
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
    if (ioLock.Lock() < 0)
        return;
    DropAll();
    SignalSpace();
    ioLock.Unlock();
}

void FileReader::ResumeBuffering() { flushed.exchange(0); }

void FileReader::Stop() {
    stopRequested = 1;
    running.exchange(0);
    progress.Notify();
    while (blockCount > 0) {
        if (ioLock.Lock() < 0)
            break;
        const bool dropped = blocks && DropHead();
        if (ioLock.Unlock() < 0 || !dropped)
            break;
    }
    SignalSpace();
    platform::ThreadWait(thread);  // fails at once for a thread that was never started
    platform::ThreadDelete(thread);
    if (fileOpened)
        fileInterface->close(fileInterface->context);
    fileOpened = false;
}

void FileReader::Teardown() {
    ioLock.Delete();
    closing.exchange(1);
    if (platform::MutexLock(spaceMutex) >= 0) {
        platform::ConditionSignal(spaceSignal);
        platform::MutexUnlock(spaceMutex);
        DropAll();
        DeleteBufferObjects();
    }
    ModuleFree(bufferMemory);
    queueLock.Delete();
    ModuleDelete(this);
}

}  // namespace kivmp4
