// Copying out of the queue, its restart, and the pool of blocks.
#include "io/BlockQueue.h"

#include <algorithm>
#include <cstring>

#include "platform/Poison.h"

namespace kivmp4 {
namespace {

// A fill that the next jump throws away costs the device as much again, so reading on waits for as long as the fill took
// before: on a slow device a jump then costs at most one block, and a player that reads on loses no more than that time.
constexpr int64_t kShortestHold = 50000;  // nanoseconds
constexpr int64_t kLongestHold = 10000000;
constexpr int64_t kHalfBlock = BlockQueue::kBlockSize / 2;

}  // namespace

bool BlockQueue::Create(uint8_t* memory) {
    if (lock.Create("filebuffer") < 0)
        return false;
    const platform::LockGuard guard(lock);
    for (FileBlock& block : blocks) {
        block = {0, 0, true, 0, memory};
        memory += kBlockSize;
    }
    platform::Forbid(blocks[0].data, kBufferSize);
    return true;
}

void BlockQueue::Delete() {
    if (blocks[0].data)
        platform::Allow(blocks[0].data, kBufferSize);
    lock.Delete();
}

bool BlockQueue::IsInRange(int64_t offset) const {
    const int64_t start = count > 0 ? queued[0]->offset : end;
    return start <= offset && offset <= end;
}

bool BlockQueue::Covers(int64_t offset) {
    const platform::LockGuard guard(lock);
    return IsInRange(offset);
}

CopyResult BlockQueue::Copy(ReadRequest& request) {
    const platform::LockGuard guard(lock);
    const uint32_t countBefore = count;
    const int64_t servedBefore = served;
    const CopyResult result = CopyPieces(request);
    const bool halfRead = servedBefore < kHalfBlock && served >= kHalfBlock;
    if (count != countBefore || halfRead)
        changed.Notify();
    return result;
}

CopyResult BlockQueue::CopyPieces(ReadRequest& request) {
    if (!request.placed) {
        request.follows = request.offset == readTo;
        request.inOrder = request.follows && served >= kHalfBlock;
        if (!IsInRange(request.offset))
            return CopyResult::OutOfRange;
        while (count > 0 && queued[0]->End() < request.offset)
            DropHead();
        request.placed = true;
    }
    while (count > 0) {
        FileBlock& head = *queued[0];
        if (request.offset < head.offset || request.offset > head.End())
            return CopyResult::Changed;
        const uint32_t size = static_cast<uint32_t>(std::min<int64_t>(request.left, head.End() - request.offset));
        std::memcpy(request.destination, head.data + (request.offset - head.offset), size);
        head.lastUse = ++uses;
        served += size;
        request.destination += size;
        request.offset += size;
        request.left -= size;
        readTo = request.offset;
        if (request.left == 0)
            return CopyResult::Copied;
        DropHead();
    }
    return CopyResult::Empty;
}

void BlockQueue::DropHead() {
    FileBlock& head = *queued[0];
    std::copy(queued + 1, queued + count, queued);
    --count;
    head.inPool = true;
    platform::Forbid(head.data, kBlockSize);
}

void BlockQueue::DropAll() {
    const platform::LockGuard guard(lock);
    while (count > 0)
        DropHead();
    served = 0;
    changed.Notify();
}

int64_t BlockQueue::Restart(int64_t offset, bool follows) {
    const platform::LockGuard guard(lock);
    while (count > 0)
        DropHead();
    end = readTo = offset;
    served = follows ? kHalfBlock : 0;
    heldUntil = 0;
    if (FileBlock* block = InPool(offset))
        Enqueue(*block);
    return end;
}

void BlockQueue::HoldBack() {
    const platform::LockGuard guard(lock);
    heldUntil = platform::MonotonicTime() + holdTime;
    changed.Notify();
}

FileBlock* BlockQueue::InPool(int64_t offset) {
    for (FileBlock& block : blocks)
        if (block.inPool && block.offset <= offset && offset < block.End())
            return &block;
    return nullptr;
}

int64_t BlockQueue::TakeBack(int64_t offset) {
    const platform::LockGuard guard(lock);
    FileBlock* block = InPool(offset);
    if (!block)
        return offset;
    Enqueue(*block);
    changed.Notify();
    return end;
}

void BlockQueue::Enqueue(FileBlock& block) {
    platform::Allow(block.data, kBlockSize);
    block.inPool = false;
    block.lastUse = ++uses;
    queued[count++] = &block;
    end = block.End();
    if (served < kHalfBlock)
        heldUntil = platform::MonotonicTime() + holdTime;
}

FileBlock* BlockQueue::LeastUsed() {
    FileBlock* found = nullptr;
    for (FileBlock& block : blocks)
        if (block.inPool && (!found || block.lastUse < found->lastUse))
            found = &block;
    return found;
}

FileBlock* BlockQueue::Take() {
    const platform::LockGuard guard(lock);
    FileBlock* block = LeastUsed();
    if (!block)
        return nullptr;
    block->inPool = false;
    platform::Allow(block->data, kBlockSize);
    return block;
}

void BlockQueue::Append(FileBlock& block, int64_t took) {
    const platform::LockGuard guard(lock);
    holdTime = std::clamp(took, kShortestHold, kLongestHold);
    Enqueue(block);
    changed.Notify();
}

void BlockQueue::GiveBack(FileBlock& block) {
    const platform::LockGuard guard(lock);
    block.inPool = true;
    block.length = 0;
    platform::Forbid(block.data, kBlockSize);
}

bool BlockQueue::HoldsBack() const {
    const bool needed = count == 0 ? waiting > 0 : served >= kHalfBlock;
    return !needed && platform::MonotonicTime() < heldUntil;
}

bool BlockQueue::WantsBlock() const { return count < kBlocks && blocks[0].data && !HoldsBack(); }

bool BlockQueue::WantsAnother() {
    const platform::LockGuard guard(lock);
    return WantsBlock();
}

void BlockQueue::Wake() {
    const platform::LockGuard guard(lock);
    changed.Notify();
}

}  // namespace kivmp4
