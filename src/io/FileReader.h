// Reads the player's file ahead on a thread of its own and serves positioned reads from what was read.
#pragma once

#include <atomic>
#include <cstdint>

#include "KivMp4.h"
#include "io/DataSource.h"
#include "platform/BlockPool.h"
#include "platform/Event.h"
#include "platform/LightMutex.h"
#include "platform/Sync.h"

namespace kivmp4 {

/// One stretch of the file in memory.
struct FileBlock {
    int64_t offset;
    int32_t length;    // valid bytes
    int32_t position;  // in the pool
    uint8_t* data;     // the pool's
    FileBlock* next;   // in the queue
};

/// The thread fills blocks of 64 KiB from `fillPosition` on, as many as the pool holds, and queues them in file order.
/// Reads copy out of the oldest blocks; a block that reading has passed goes back to the pool, which lets the thread
/// fill the next one. A read outside the queued range empties the queue and sends the thread there. Reads of 64 KiB and
/// more, and all reads while flushed, go straight to the player.
///
/// Locks, in this order: ioLock, bufferLock. A read of bytes that are queued takes bufferLock alone, so that it does not
/// wait for the fill of a later block. spaceMutex is held only around one signal or one wait, never together with
/// bufferLock; the thread never waits on spaceSignal while it holds ioLock.
/// Read, Flush and ResumeBuffering may run on different threads at once; Open, Stop and Teardown may not.
class FileReader {
public:
    static constexpr uint32_t kBlockSize = 0x10000;
    static constexpr uint32_t kBufferSize = 0x30000;
    static constexpr uint32_t kBlocks = kBufferSize / kBlockSize;

    explicit FileReader(int32_t level) : logLevel(level) {}

    /// Opens the file through the player and starts the thread. @return Done, or NotReady when either failed; what was
    /// begun is undone by Stop and Teardown
    ReadStatus Open(const char* path, uint32_t mode, const FileInterface* file, int32_t basePriority);

    /// @param delivered  receives the number of bytes copied; fewer than asked only when the player answered so
    /// @return NotReady while the thread is not running or the queue changed meanwhile; Failed behind the file's end,
    ///         after a failed fill, and when there is no thread any more
    [[nodiscard]] ReadStatus Read(void* destination, int64_t offset, uint32_t size, uint32_t& delivered);

    /// Asks the player anew each time. @return 0 while the size is not known
    int64_t GetFileSize();

    /// Trick mode on: drops what was read ahead; the thread idles.
    void Flush();
    /// Trick mode off.
    void ResumeBuffering();

    /// Ends the thread, waits for it, closes the file.
    void Stop();
    /// Gives back everything, this object included. Follows Stop.
    void Teardown();

private:
    // The thread, in FileStreamingThread.cpp
    static int32_t FileStreamingThread(void* argument);
    void Stream();
    bool SetUp();
    bool CreateBufferObjects();
    void LearnFileSize();
    bool KeepGoing() const { return running && !stopRequested; }
    void WaitForSpace();
    void Fill(int32_t position);
    uint32_t AskForFill(const FileBlock& block, uint32_t size);
    void Append(FileBlock& block);
    void AwaitReading();

    // Reading
    ReadStatus State() const;
    int64_t KnownEnd() const;
    bool CrossesEnd(int64_t offset, uint32_t size) const;
    ReadStatus RefuseBeyondEnd(int64_t offset, uint32_t size) const;
    ReadStatus ReadRaw(void* destination, int64_t offset, uint32_t size, uint32_t& delivered);
    ReadStatus ReadBuffered(uint8_t* destination, int64_t offset, uint32_t size);
    ReadStatus Jump(int64_t offset, uint32_t size);
    ReadStatus CopyOut(uint8_t* destination, int64_t offset, uint32_t size);
    ReadStatus WaitForStart();
    ReadStatus WaitForData();
    void LockIo();
    ReadStatus TakeQueue();
    void DropHead();
    void DropAll();
    void SignalSpace();
    void DeleteBufferObjects();

    FileBlock* blocks = nullptr;            // oldest first; guarded by bufferLock
    std::atomic<int32_t> blockCount{0};     // written under bufferLock
    int64_t bufferedEnd = 0;                // behind the newest block, or where a jump went; guarded by bufferLock
    platform::LightMutex bufferLock;        // all use of the queue
    platform::BlockPool pool{};             // over bufferMemory
    std::atomic<int32_t> spaceSignal{platform::kNoId};  // the thread waits on it for room in the pool
    std::atomic<int32_t> spaceMutex{platform::kNoId};
    int64_t fillPosition = 0;               // what the thread reads next; guarded by ioLock
    std::atomic<int64_t> fileSize{0};       // as the thread learnt it; 0 until then
    std::atomic<int64_t> announcedSize{0};  // last positive answer to anybody: bounds reads until the thread knows
    uint8_t* bufferMemory = nullptr;        // owned; kBufferSize bytes
    std::atomic<uint32_t> running{0};       // 1 while the thread is to keep going
    std::atomic<uint32_t> stopRequested{0};  // set before `running` is cleared, so that a setup under way ends too
    std::atomic<uint32_t> threadEnded{0};   // the thread is gone without having been told to: reads fail
    std::atomic<uint32_t> flushed{0};       // trick mode
    std::atomic<uint32_t> readFailed{0};    // a fill came back with another count than asked; stays
    platform::Event progress;               // the thread has started, ended, queued a block or failed; or reads must end
    platform::LightMutex ioLock;            // one call to the player's read at a time
    std::atomic<uint32_t> ioWaiters{0};     // who wants ioLock besides the thread: they go first
    bool jumped = true;                    // since the last fill; guarded by ioLock
    std::atomic<uint32_t> served{0};        // bytes read out of the queue since the last jump; written under bufferLock
    int32_t thread = platform::kNoId;
    const FileInterface* fileInterface = nullptr;  // the player's
    bool fileOpened = false;                // the player's close is due
    int32_t logLevel;
    FileBlock descriptors[kBlocks] = {};    // of the pool's blocks, by position: a full heap never starves the thread
};

}  // namespace kivmp4
