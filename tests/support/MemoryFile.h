// Plays the player's file functions over bytes in memory, misbehaves on demand and notes every broken promise.
#pragma once

#include "KivMp4.h"
#include "support/Mp4Builder.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <limits>
#include <mutex>
#include <thread>

namespace kivmp4::test {

class MemoryFile {
    std::mutex lock;
    template <class Work> auto Locked(Work work) {
        const std::lock_guard<std::mutex> guard(lock);
        return work();
    }

public:
    enum class Fault { None, Short, Over, Error, Empty };
    struct ReadCall {
        int64_t offset;
        uint32_t size;
    };

    explicit MemoryFile(Bytes content) : bytes(std::move(content)) {}

    Bytes bytes;
    // Set these before the handle exists.
    Fault fault = Fault::None;  // what the calls from number `faultCall` on answer, `faultCount` of them
    uint32_t faultCall = 0, faultCount = std::numeric_limits<uint32_t>::max();
    int64_t unknownSize = 0;    // answered by the first `unknownAsks` calls of getSize on each thread
    uint32_t unknownAsks = 0;
    bool refuseOpen = false;
    uint32_t delaySeed = 0;     // not 0: random waits of up to 200 microseconds in `read`

    FileInterface* Interface() { return &interface; }
    int Opens() const { return opens; }
    int Closes() const { return closes; }
    std::vector<ReadCall> Reads() { return Locked([&] { return reads; }); }
    std::vector<std::string> Violations() { return Locked([&] { return violations; }); }

private:
    uint32_t Read(void* destination, int64_t offset, uint32_t size) {
        if (inRead.exchange(true))
            Locked([&] { violations.push_back("overlapping reads"); });
        const auto known = static_cast<int64_t>(bytes.size());
        const bool allowed = opens > closes && size > 0 && offset >= 0 && offset <= known && size <= known - offset;
        const uint32_t call = Locked([&] {
            if (!allowed)
                violations.push_back("read of " + std::to_string(size) + " at " + std::to_string(offset));
            if (delaySeed)
                delaySeed = delaySeed * 48271u + 11;
            reads.push_back({offset, size});
            return static_cast<uint32_t>(reads.size() - 1);
        });
        if (delaySeed)
            std::this_thread::sleep_for(std::chrono::microseconds((delaySeed >> 8) % 200));
        const bool faulty = call >= faultCall && call - faultCall < faultCount;
        const uint32_t answers[] = {size, size - 1, size + 1, std::numeric_limits<uint32_t>::max(), 0};  // by Fault
        const uint32_t answer = allowed ? answers[static_cast<int>(faulty ? fault : Fault::None)] : 0;
        if (answer)
            std::memcpy(destination, bytes.data() + offset, std::min(answer, size));
        inRead = false;
        return answer;
    }

    int64_t GetSize() {
        return Locked([&] {
            if (opens == closes)
                violations.push_back("size asked of a closed file");
            const bool unknown = asks[std::this_thread::get_id()]++ < unknownAsks;
            return unknown ? unknownSize : static_cast<int64_t>(bytes.size());
        });
    }

    static MemoryFile* Of(void* context) { return static_cast<MemoryFile*>(context); }

    FileInterface interface = {
        this,
        [](void* c, const char*, uint32_t) { return Of(c)->refuseOpen ? -1 : (Of(c)->opens++, 0); },
        [](void* c) { return Of(c)->closes++ < Of(c)->opens ? 0 : -1; },
        [](void* c, void* destination, int64_t offset, uint32_t size) { return Of(c)->Read(destination, offset, size); },
        [](void* c) { return Of(c)->GetSize(); },
    };
    std::atomic<int> opens = 0, closes = 0;
    std::atomic<bool> inRead = false;
    std::map<std::thread::id, uint32_t> asks;
    std::vector<ReadCall> reads;
    std::vector<std::string> violations;
};

}  // namespace kivmp4::test
