// A file on a device whose every request and byte takes time, its player, and the streaming reader over both.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <ostream>
#include <random>
#include <vector>

#include "io/FileSource.h"
#include "platform/Clock.h"
#include "schedule/Scheduler.h"

namespace kivmp4::test {

constexpr int64_t kBlock = BlockQueue::kBlockSize;
constexpr int64_t kFileSize = 5 * kBlock + 1000;
constexpr int64_t kLongFile = 16 * kBlock + 1000;
constexpr size_t kHeapSize = 320 << 10;

inline void Require(bool holds, const char* what) {
    if (!holds)
        Scheduler::Current().Fail(what);
}

inline const std::vector<uint8_t>& Content() {
    static const std::vector<uint8_t> content = [] {
        std::vector<uint8_t> bytes(kLongFile);
        std::generate(bytes.begin(), bytes.end(),
                      [random = std::mt19937(3)]() mutable { return static_cast<uint8_t>(random()); });
        return bytes;
    }();
    return content;
}

/// What a player's device had to do, and the time that passed.
struct Cost {
    uint32_t requests;
    int64_t bytes;
    int64_t microseconds;

    bool operator==(const Cost&) const = default;
    bool LiesBetween(const Cost& least, const Cost& most, int64_t spread) const {
        return least.requests <= requests && requests <= most.requests && least.bytes <= bytes && bytes <= most.bytes &&
               least.microseconds - spread <= microseconds && microseconds <= most.microseconds + spread;
    }
};

inline void PrintTo(const Cost& cost, std::ostream* out) {
    *out << '{' << cost.requests << ", " << cost.bytes << ", " << cost.microseconds << '}';
}

/// A file, its player, and a reader over both.
class World {
public:
    // The player's ways; to be set before Open.
    uint32_t emptyAnswers = 0;        // of `read`, before each answer with bytes
    uint32_t answers = UINT32_MAX;    // with bytes; from then on it has nothing
    uint32_t shortRead = UINT32_MAX;  // the read that brings a byte less than asked
    uint32_t unknownSizes = 0;        // the first answers of getSize
    int64_t firstSize = 0;            // what they are
    uint32_t readTime = 200;          // microseconds a request
    uint32_t byteTime = 0;            // nanoseconds a byte
    int64_t fileSize = kFileSize;

    void Open() {
        static std::vector<uint8_t> heap(kHeapSize);
        Require(CreateModuleHeap(heap.data(), heap.size()), "no heap");
        reader = ModuleNew<FileReader>(0);
        source = ModuleNew<FileSource>(reader, 0);
        opened = platform::MonotonicTime();
        Require(reader->Open("clip.mp4", 0, &interface, 0) == ReadStatus::Done, "not opened");
    }
    void Close() {
        Require(source->Close() == 0, "not closed");
        delete source;
        Require(!isOpen, "the file stays open");
        void* all = ModuleAllocRaw(16, kHeapSize - 4096);
        Require(all != nullptr, "memory was not given back");
        ModuleFree(all);
        DestroyModuleHeap();
    }

    /// As boxes read: again while it is not ready.
    ReadStatus Read(int64_t offset, uint32_t size) {
        std::vector<uint8_t> got(size);
        ReadStatus status;
        while ((status = source->Read(offset, size, got.data())) == ReadStatus::NotReady && !stopped)
            platform::DelayMicroseconds(90);
        if (status == ReadStatus::Done)
            Require(std::equal(got.begin(), got.end(), Content().begin() + static_cast<std::ptrdiff_t>(offset)),
                    "wrong bytes");
        return status;
    }
    void Expect(int64_t offset, int64_t size) {
        Require(Read(offset, static_cast<uint32_t>(size)) == ReadStatus::Done, "a read fails");
    }
    void ReadThrough(int64_t from, int64_t to, int64_t step) {
        for (; from < to; from += step)
            Expect(from, std::min(step, to - from));
    }
    /// Gives the thread time to read ahead. @return how many reads the player has answered so far
    uint32_t ReadsAfterAWhile() {
        platform::DelayMicroseconds(50000);
        return static_cast<uint32_t>(reads.size());
    }
    Cost Spent() const {
        return {static_cast<uint32_t>(reads.size()), bytes, (platform::MonotonicTime() - opened) / 1000};
    }
    void SwitchTrickMode(int times) {
        for (int i = 0; i < times; i++) {
            reader->Flush();
            platform::DelayMicroseconds(i * 150);
            reader->ResumeBuffering();
        }
    }

    FileReader* reader = nullptr;
    FileSource* source = nullptr;
    bool stopped = false;        // reads need not come to anything any more
    std::vector<int64_t> reads;  // offsets of those that the player answered

private:
    uint32_t AnswerRead(void* destination, int64_t offset, uint32_t size) {
        Require(isOpen && size > 0 && offset >= 0 && offset + size <= fileSize, "a read that was never due");
        Require(!inRead, "two reads at once");
        inRead = true;
        platform::DelayMicroseconds(readTime + size * byteTime / 1000);
        bytes += size;
        inRead = false;
        if (empties++ % (emptyAnswers + 1) < emptyAnswers || reads.size() >= answers)
            return 0;
        const uint32_t count = reads.size() == shortRead ? size - 1 : size;
        reads.push_back(offset);
        std::copy_n(Content().begin() + static_cast<std::ptrdiff_t>(offset), count, static_cast<uint8_t*>(destination));
        return count;
    }
    int64_t AnswerSize() {
        Scheduler::Current().Step();
        return unknownSizes > 0 ? (unknownSizes--, firstSize) : fileSize;
    }
    static World* Of(void* context) { return static_cast<World*>(context); }

    FileInterface interface = {
        this,
        [](void* c, const char*, uint32_t) { return Of(c)->isOpen = true, 0; },
        [](void* c) { return Of(c)->isOpen = false, 0; },
        [](void* c, void* destination, int64_t offset, uint32_t size) {
            return Of(c)->AnswerRead(destination, offset, size);
        },
        [](void* c) { return Of(c)->AnswerSize(); },
    };
    bool isOpen = false, inRead = false;
    uint32_t empties = 0;
    int64_t bytes = 0, opened = 0;
};

/// A thread beside the scenario's own.
class Beside {
public:
    explicit Beside(std::function<void()> body) : thread(Scheduler::Current().Start(std::move(body))) {}
    ~Beside() { Scheduler::Current().Join(thread); }

private:
    uint32_t thread;
};

inline uint32_t FromEnvironment(const char* name, uint32_t otherwise) {
    const char* text = std::getenv(name);
    return text ? static_cast<uint32_t>(std::strtoul(text, nullptr, 10)) : otherwise;
}

}  // namespace kivmp4::test
