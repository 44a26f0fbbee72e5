// Reads the player's file ahead on a thread of its own and serves positioned reads from what was read.
#pragma once

#include <cstdint>

#include "KivMp4.h"
#include "io/BlockQueue.h"
#include "io/DataSource.h"
#include "platform/Atomic.h"
#include "platform/LightMutex.h"
#include "platform/Thread.h"

namespace kivmp4 {

/// The thread fills blocks of 64 KiB from `fillPosition` on, as many as there are, and queues them in file order. Reads
/// copy out of the oldest blocks; a block that reading has passed goes back to the pool, which lets the thread fill the
/// next one. A read outside the queued range empties the queue and sends the thread there. Reads of 64 KiB and more take
/// what is queued and get the rest straight from the player, as do all reads while flushed.
///
/// Locks: ioLock, then the queue's own, which is never held across a call out of the queue. A read of bytes that are
/// queued takes the queue's alone, so that it does not wait for the fill of a later block. Nobody waits for an event with
/// ioLock held.
/// Read, Flush and ResumeBuffering may run on different threads at once; Open, Stop and Teardown may not.
class FileReader {
public:
    explicit FileReader(int32_t level) : logLevel(level) {}

    /// Opens the file through the player and starts the thread. @return Done, or NotReady when either failed; what was
    /// begun is undone by Stop and Teardown
    ReadStatus Open(const char* path, uint32_t mode, const FileInterface* file, int32_t basePriority);

    /// @param delivered  receives the number of bytes copied; fewer than asked only when the player answered so
    /// @return NotReady while the thread is not running or the queue changed meanwhile; Failed past the file's end, after
    ///         a failed fill, and when the thread could not set itself up
    [[nodiscard]] ReadStatus Read(int64_t offset, uint32_t size, void* destination, uint32_t& delivered);

    /// Asks the player anew each time. @return 0 while the size is not known
    int64_t GetFileSize();

    /// Trick mode on: drops what was read ahead; the thread idles.
    void Flush();
    /// Trick mode off.
    void ResumeBuffering();

    /// Ends the thread and all waits, waits for the thread's end, closes the file.
    void Stop();
    /// Gives back everything, this object included. Follows Stop.
    void Teardown();

private:
    // The thread, in FileStreamingThread.cpp
    static void FileStreamingThread(void* reader);
    void Stream();
    bool SetUp();
    void LearnFileSize();
    bool MayFill() const;
    void Fill();
    void FillFromPlayer(FileBlock& block);
    uint32_t AskForFill(const FileBlock& block, uint32_t size);
    int64_t AfterFill(int64_t position) const;

    // Reading
    class CallersTurn;
    ReadStatus State() const;
    int64_t KnownEnd() const;
    bool CrossesEnd(int64_t offset, uint32_t size) const;
    ReadStatus RefuseBeyondEnd(int64_t offset, uint32_t size) const;
    ReadStatus AwaitStart();
    ReadStatus AwaitBlock(const ReadRequest& request);
    ReadStatus ReadDirectly(int64_t offset, uint32_t size, void* destination, uint32_t& delivered);
    bool TakeQueued(ReadRequest& request);
    uint32_t AskForRest(const ReadRequest& rest, int64_t offset, uint32_t size);
    void ReadOnAfter(const ReadRequest& rest);
    ReadStatus ReadBuffered(ReadRequest request);
    ReadStatus Jump(ReadRequest& request);

    // Constant after Open.
    const FileInterface* fileInterface = nullptr;  // the player's
    bool fileOpened = false;                       // the player's close is due
    int32_t logLevel;
    platform::Thread thread;

    // Guarded by ioLock, which is held for each call of the player's read: one at a time.
    platform::LightMutex ioLock;
    int64_t fillPosition = 0;  // what the thread reads next: changed by its own fills and by jumps

    // With a lock of its own.
    BlockQueue queue;

    platform::Atomic<uint32_t> callers{0};  // that wait for ioLock: they go before the thread's next fill

    // Flags. Whoever sets one that a wait looks at wakes the queue's waits afterwards.
    platform::Atomic<bool> running{false};        // the thread has set itself up; stays
    platform::Atomic<bool> setupFailed{false};    // it could not and is gone; stays
    platform::Atomic<bool> stopRequested{false};  // stays
    platform::Atomic<bool> readFailed{false};     // a fill came back with another count than asked; stays
    platform::Atomic<bool> flushed{false};        // trick mode

    // Numbers that any thread may read. The thread works with `fileSize`; until it knows that, reads are bounded by the
    // last positive answer to anybody.
    platform::Atomic<int64_t> fileSize{0};
    platform::Atomic<int64_t> announcedSize{0};

    // The thread's until Teardown.
    uint8_t* bufferMemory = nullptr;  // owned; the queue's blocks
};

}  // namespace kivmp4
