// The reading side of the streaming reader: open, positioned reads, trick mode, stop.
#include "io/FileReader.h"

#include "platform/Clock.h"
#include "support/Log.h"

namespace kivmp4 {
namespace {

constexpr int32_t kPriorityStep = 15;
constexpr size_t kStackSize = 0x4000;

int32_t ThreadPriority(int32_t base) { return base > INT32_MAX - kPriorityStep ? INT32_MAX : base + kPriorityStep; }

}  // namespace

/// Holds ioLock for a caller of the reader. Between two fills the thread would have it again before a waiting caller is
/// awake, so it fills only while no caller waits, and is told when a turn is over.
class FileReader::CallersTurn {
public:
    explicit CallersTurn(FileReader& fileReader) : reader(fileReader) {
        reader.callers.fetch_add(1);
        reader.ioLock.Lock();
        reader.callers.fetch_sub(1);
    }
    ~CallersTurn() {
        reader.ioLock.Unlock();
        if (!reader.flushed)  // in trick mode the thread has nothing to do, and the end of that tells it
            reader.queue.Wake();
    }
    CallersTurn(const CallersTurn&) = delete;
    CallersTurn& operator=(const CallersTurn&) = delete;

private:
    FileReader& reader;
};

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
    const int32_t priority = ThreadPriority(basePriority);
    if (!thread.Start("orvale FileStreaming", FileStreamingThread, this, priority, kStackSize)) {
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

// Done while the thread runs. A thread that could not set itself up will never bring what a wait is for.
ReadStatus FileReader::State() const {
    if (running)
        return stopRequested ? ReadStatus::NotReady : ReadStatus::Done;
    return setupFailed ? ReadStatus::Failed : ReadStatus::NotReady;
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

ReadStatus FileReader::Read(int64_t offset, uint32_t size, void* destination, uint32_t& delivered) {
    delivered = 0;
    if (const ReadStatus state = AwaitStart(); state != ReadStatus::Done)
        return state;
    if (readFailed)
        return ReadStatus::Failed;
    if (CrossesEnd(offset, size))
        return RefuseBeyondEnd(offset, size);
    if (size == 0)  // the player is never asked for nothing: it could only answer "nothing yet"
        return ReadStatus::Done;
    if (size >= BlockQueue::kBlockSize || flushed)
        return ReadDirectly(offset, size, destination, delivered);

    const ReadStatus status = ReadBuffered({offset, size, static_cast<uint8_t*>(destination)});
    if (status == ReadStatus::Done)
        delivered = size;
    return status;
}

// Right after Open the thread is still setting itself up. @return as State, after one poll's time at the longest
ReadStatus FileReader::AwaitStart() {
    if (!running)
        queue.Await([this] { return running || setupFailed || stopRequested; },
                    platform::MonotonicTime() + int64_t{kRetryDelay} * 1000);
    return State();
}

// The thread brings a block unless it is gone, its fill failed, or it idles because of a flush. It may have learnt a
// smaller size than the read was tested against.
ReadStatus FileReader::AwaitBlock(const ReadRequest& request) {
    if (CrossesEnd(request.offset, request.left))
        return RefuseBeyondEnd(request.offset, request.left);
    queue.AwaitBlock([this] { return stopRequested || readFailed || flushed; });
    if (readFailed)
        return ReadStatus::Failed;
    return flushed ? ReadStatus::NotReady : State();
}

// Straight into place, but for what is queued. A count that is not the size asked for is for the caller to judge: it is
// the size only when the player delivers all that it is asked for.
ReadStatus FileReader::ReadDirectly(int64_t offset, uint32_t size, void* destination, uint32_t& delivered) {
    ReadRequest rest{offset, size, static_cast<uint8_t*>(destination)};
    delivered = size;
    if (TakeQueued(rest))
        return ReadStatus::Done;
    const CallersTurn turn(*this);
    if (TakeQueued(rest))  // what was being filled until now
        return ReadStatus::Done;
    delivered = size - rest.left + AskForRest(rest, offset, size);
    if (!flushed)
        ReadOnAfter(rest);
    return ReadStatus::Done;
}

// @return whether that was all
bool FileReader::TakeQueued(ReadRequest& request) { return !flushed && queue.Copy(request) == CopyResult::Copied; }

// Until the player has bytes it can only be polled. @return the player's count, whatever it is
uint32_t FileReader::AskForRest(const ReadRequest& rest, int64_t offset, uint32_t size) {
    for (;;) {
        const uint32_t count = fileInterface->read(fileInterface->context, rest.destination, rest.offset, rest.left);
        LogDebug(logLevel, "Read", 269, "RAW READ:  Size: %d, Position: %lld  \n", static_cast<int>(size),
                 static_cast<long long>(offset));
        if (count != 0)
            return count;
        platform::DelayMicroseconds(kRetryDelay);
        if (stopRequested)
            return 0;
    }
}

// The next small read mostly follows the large one; reading ahead inside of it would bring the same bytes again.
void FileReader::ReadOnAfter(const ReadRequest& rest) {
    fillPosition = AfterFill(queue.Restart(rest.offset + rest.left, rest.follows));
    if (!rest.inOrder)
        queue.HoldBack();
}

ReadStatus FileReader::ReadBuffered(ReadRequest request) {
    for (;;) {
        ReadStatus status = ReadStatus::NotReady;
        switch (queue.Copy(request)) {
            case CopyResult::Copied: return ReadStatus::Done;
            case CopyResult::OutOfRange: status = Jump(request); break;
            case CopyResult::Empty: status = AwaitBlock(request); break;
            case CopyResult::Changed: break;
        }
        if (status != ReadStatus::Done)
            return status;
    }
}

// Sends the thread to the request's offset, unless the fill that ran meanwhile has brought it: ioLock was free only
// after that fill's end.
ReadStatus FileReader::Jump(ReadRequest& request) {
    const CallersTurn turn(*this);
    if (queue.Covers(request.offset))
        return ReadStatus::Done;
    fillPosition = AfterFill(queue.Restart(request.offset));
    request.placed = true;
    return ReadStatus::Done;
}

void FileReader::Flush() {
    if (flushed.exchange(true))
        return;
    const CallersTurn turn(*this);  // after a fill under way, whose block goes too
    queue.DropAll();                // which ends the waits for a block
}

void FileReader::ResumeBuffering() {
    if (flushed.exchange(false))
        queue.HoldBack();
}

void FileReader::Stop() {
    stopRequested = true;
    queue.Wake();
    thread.Join();
    if (fileOpened)
        fileInterface->close(fileInterface->context);
    fileOpened = false;
}

void FileReader::Teardown() {
    ioLock.Delete();
    queue.Delete();
    ModuleFree(bufferMemory);
    ModuleDelete(this);
}

}  // namespace kivmp4
