// The blocks that were read ahead, in file order, and the pool they come from: a queue with its lock inside.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/Clock.h"
#include "platform/Event.h"
#include "platform/LightMutex.h"

namespace kivmp4 {

/// One stretch of the file in memory.
struct FileBlock {
    int64_t offset;
    int32_t length;    // valid bytes
    bool inPool;       // neither queued nor being filled; its bytes stay valid until it is taken
    uint32_t lastUse;  // grows from use to use
    uint8_t* data;     // kBlockSize bytes

    int64_t End() const { return offset + length; }
};

/// What is left of a positioned read.
struct ReadRequest {
    int64_t offset;
    uint32_t left;
    uint8_t* destination;
    bool placed = false;   // it was found in the queued range, or a jump has led there: from now on only the block with
                           // its next byte serves it
    bool follows = false;  // it began where the last read ended
    bool inOrder = false;  // and half a block and more after a jump
};

enum class CopyResult {
    Copied,      // all of it
    OutOfRange,  // nothing copied: a jump is needed
    Empty,       // the next block brings the rest
    Changed      // the queue went elsewhere in the middle of the request: begin anew
};

/// Invariants, all under `lock`:
/// - Each block is in the pool, queued, or in the hands of the thread that fills it.
/// - The queued blocks are in the order of reading: each begins where the one before ends, or inside it when it was
///   taken back from the pool, or at the file's start when the one before ends the file.
/// - Any block may stand at the head: a jump, a flush and a read on other threads change it between two calls. Copy
///   therefore compares each piece with the block that it copies from, under the same hold of the lock.
/// - `end` is the end of the newest block, or where the queue was emptied to be filled from.
/// - Who changes what a wait looks for notifies `changed` under the same hold of the lock; flags outside are changed
///   first and then told by Wake, and so is a restart, whose caller has more to change before the waits look again.
class BlockQueue {
public:
    static constexpr uint32_t kBlockSize = 0x10000;
    static constexpr uint32_t kBlocks = 3;
    static constexpr uint32_t kBufferSize = kBlocks * kBlockSize;

    /// Gives the queue its blocks; until then it is empty and has no room.
    /// @param memory  kBufferSize bytes, borrowed until Delete
    [[nodiscard]] bool Create(uint8_t* memory);
    /// Ends the use of the memory. No thread may be using the queue.
    void Delete();

    /// Copies what is queued of the request and drops each block that it reaches past.
    [[nodiscard]] CopyResult Copy(ReadRequest& request);

    /// Whether the read of that offset needs no jump. After the wrap to the file's start the range looks inverted, and a
    /// read near the end jumps: meant.
    [[nodiscard]] bool Covers(int64_t offset);

    /// Empties the queue and takes a block back that has the byte at `offset`, if the pool still holds one. Wake is due.
    /// @param follows  the read before goes on there, past what was queued: no jump
    /// @return where filling has to go on
    int64_t Restart(int64_t offset, bool follows = false);

    /// Empties the queue, and lets waits look at their flags.
    void DropAll();

    /// Takes the pool's block back that has the byte at `offset`. @return where filling has to go on; `offset` when the
    /// pool holds none
    int64_t TakeBack(int64_t offset);

    /// Takes the block out of the pool that was not used for longest, to be filled. @return null when all are queued
    FileBlock* Take();
    /// Queues a block that was taken.
    /// @param took  how long it was being filled, in nanoseconds
    void Append(FileBlock& block, int64_t took);
    /// Gives a block back that could not be filled.
    void GiveBack(FileBlock& block);

    /// Puts filling off until a read waits or a while has passed.
    void HoldBack();

    /// Tells waits that a flag they look at has changed.
    void Wake();

    // The waits. `ended` names the reasons to end besides the one in the wait's own name; it is called with the lock held
    // and may look at flags only.

    /// @return at the deadline too
    template <typename Ended>
    void Await(Ended ended, int64_t deadline) {
        const platform::LockGuard guard(lock);
        while (!ended() && platform::MonotonicTime() < deadline)
            changed.Wait(lock, deadline);
    }

    /// Until a block is queued.
    template <typename Ended>
    void AwaitBlock(Ended ended) {
        const platform::LockGuard guard(lock);
        ++waiting;
        if (count == 0)
            changed.Notify();  // filling may have been put off
        while (count == 0 && !ended())
            changed.Wait(lock, platform::kNever);
        --waiting;
    }

    /// Until another block should be filled.
    /// @param mayFill  whether filling is allowed at all, as `ended` for its rules
    template <typename MayFill, typename Ended>
    void AwaitRoom(MayFill mayFill, Ended ended) {
        const platform::LockGuard guard(lock);
        while (!ended() && !(mayFill() && WantsBlock()))
            changed.Wait(lock, HoldsBack() ? heldUntil : platform::kNever);
    }
    /// @return whether AwaitRoom would still see a reason to fill
    [[nodiscard]] bool WantsAnother();

private:
    // All of these with `lock` held.
    bool IsInRange(int64_t offset) const;
    CopyResult CopyPieces(ReadRequest& request);
    void Enqueue(FileBlock& block);
    FileBlock* InPool(int64_t offset);
    FileBlock* LeastUsed();
    void DropHead();
    bool HoldsBack() const;
    bool WantsBlock() const;

    platform::LightMutex lock;  // guards everything below
    platform::Event changed;
    FileBlock blocks[kBlocks] = {};
    FileBlock* queued[kBlocks] = {};  // borrowed from `blocks`; the head first
    uint32_t count = 0;               // of them
    int64_t end = 0;
    uint32_t uses = 0;
    uint32_t waiting = 0;   // reads that wait for a block
    int64_t readTo = 0;     // the end of the last read, or where a jump led
    int64_t served = 0;     // bytes copied since a jump, or half a block once a large read has followed it
    int64_t holdTime = 0;   // nanoseconds: what the last fill took, within bounds
    int64_t heldUntil = 0;  // until then filling is put off, unless reads need it
};

}  // namespace kivmp4
