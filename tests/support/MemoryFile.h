// Plays the player's file functions over bytes in memory, misbehaves on demand and notes every broken promise.
#pragma once

#include "KivMp4.h"
#include "support/FailingCall.h"
#include "support/Mp4Builder.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>

namespace kivmp4::test {

class MemoryFile {
    std::mutex lock;
    template <class Work>
    auto Locked(Work work) {
        const std::lock_guard<std::mutex> guard(lock);
        return work();
    }

public:
    enum class Fault { None, Short, Over, Error, Empty };

    explicit MemoryFile(Bytes content) : bytes(std::move(content)) {}

    Bytes bytes;
    // Set these before the handle exists.
    Fault fault = Fault::None;  // the answer of failing calls of `read`
    FailingCall failing;
    int64_t firstSize = 0;  // answered by the first `firstAsks` calls of getSize on each thread
    uint32_t firstAsks = 0;
    bool refuseOpen = false;
    int64_t holeAt = 0, holeSize = 0;  // so many zero bytes more stand in the file in front of the byte at `holeAt`
    uint32_t delaySeed = 0;            // not 0: random waits of up to 200 microseconds in `read`

    FileInterface* Interface() { return &interface; }
    int Opens() const { return opens; }
    int Closes() const { return closes; }
    std::vector<int64_t> Reads() {
        return Locked([&] { return reads; });
    }
    std::vector<std::string> Violations() {
        return Locked([&] { return violations; });
    }

private:
    uint32_t Read(void* destination, int64_t offset, uint32_t size) {
        if (inRead.exchange(true))
            Locked([&] { violations.push_back("overlapping reads"); });
        Locked([&] {
            if (opens == closes || size == 0 || offset < 0 || offset > told || size > told - offset)
                violations.push_back("read of " + std::to_string(size) + " at " + std::to_string(offset));
            if (delaySeed)
                delaySeed = delaySeed * 48271u + 11;
            reads.push_back(offset);
        });
        if (delaySeed)
            std::this_thread::sleep_for(std::chrono::microseconds((delaySeed >> 8) % 200));
        const uint32_t answers[] = {size, size - 1, size + 1, std::numeric_limits<uint32_t>::max(), 0};  // by Fault
        uint32_t answer = answers[static_cast<int>(failing.Fails() ? fault : Fault::None)];
        const auto there = static_cast<uint32_t>(std::clamp<int64_t>(Size() - offset, 0, size));
        if (answer)
            Copy(static_cast<uint8_t*>(destination), offset, std::min(answer, there));
        if (there < size)
            answer = there ? there : std::numeric_limits<uint32_t>::max();
        inRead = false;
        return answer;
    }

    int64_t Size() const { return static_cast<int64_t>(bytes.size()) + holeSize; }
    void Copy(uint8_t* destination, int64_t offset, uint32_t size) const {
        if (holeSize == 0) {
            std::copy_n(bytes.data() + offset, size, destination);
            return;
        }
        for (uint32_t i = 0; i < size; i++) {
            const int64_t at = offset + i, place = at < holeAt ? at : at - holeSize;
            destination[i] = at >= holeAt && place < holeAt ? uint8_t{0} : bytes[static_cast<size_t>(place)];
        }
    }

    int64_t GetSize() {
        return Locked([&] {
            if (opens == closes)
                violations.push_back("size asked of a closed file");
            const bool first = asks[std::this_thread::get_id()]++ < firstAsks;
            const int64_t answer = first ? firstSize : Size();
            told = std::max(told, answer);
            return answer;
        });
    }

    static MemoryFile* Of(void* context) { return static_cast<MemoryFile*>(context); }

    FileInterface interface = {
        this,
        [](void* c, const char*, uint32_t) { return Of(c)->refuseOpen ? -1 : (Of(c)->opens++, 0); },
        [](void* c) { return Of(c)->closes++ < Of(c)->opens ? 0 : -1; },
        [](void* c, void* destination, int64_t offset, uint32_t size) {
            return Of(c)->Read(destination, offset, size);
        },
        [](void* c) { return Of(c)->GetSize(); },
    };
    std::atomic<int> opens = 0, closes = 0;
    std::atomic<bool> inRead = false;
    std::map<std::thread::id, uint32_t> asks;
    std::vector<int64_t> reads;  // their offsets
    int64_t told = 0;            // the greatest size that was ever answered
    std::vector<std::string> violations;
};

}  // namespace kivmp4::test
