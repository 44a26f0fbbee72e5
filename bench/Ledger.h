// Books of what the module takes from a player: blocks of its heap, the player's memory, calls of malloc, and stacks.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <unordered_map>

#include "KivMp4.h"

namespace kivmp4::bench {

/// Blocks that are handed out, in bytes.
class Ledger {
public:
    /// @param cost  what the block takes, with all that is kept beside it
    void Add(const void* block, size_t cost);
    /// Blocks that were never added are passed over.
    void Remove(const void* block);

    size_t live = 0, peak = 0;

private:
    std::unordered_map<const void*, size_t> blocks;
};

/// Calls that took memory or made a block larger.
struct Calls {
    size_t heap = 0, client = 0, system = 0;
    Calls operator-(const Calls& before) const {
        return {heap - before.heap, client - before.client, system - before.system};
    }
};

/// The books of the session that runs. Use them while no handle exists: the module's thread writes to them too.
struct Books {
    Ledger heap, client;
    std::map<std::string, size_t> stacks;  // of each thread: the most bytes below its entry, over all sessions

    /// For a new session; the stacks stay.
    void Clear();
};
extern Books books;

/// The greatest sums so far in this session, in bytes.
struct Peaks {
    size_t heap, client;
};
Peaks PeaksSoFar();

/// Since the program began, without what the books themselves take.
Calls CallsSoFar();

/// malloc, in the books.
extern const ClientAllocator clientMemory;

using ThreadEntry = void* (*)(void*);

/// Runs `entry` on a thread of its own to its end, and books the stack it used.
void RunOnWatchedStack(const char* name, ThreadEntry entry, void* argument);

}  // namespace kivmp4::bench
