// Books kept by standing between the module and its heap, the C library's memory and its threads.
#include "Ledger.h"

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
int __real_pthread_create(pthread_t* id, const pthread_attr_t* how, kivmp4::bench::ThreadEntry entry, void* argument);
}

namespace kivmp4::bench {

Books books;

namespace {

constexpr size_t kStackSize = 256 << 10;
constexpr uint8_t kPaint = 0xA5;

std::atomic<size_t> heapCalls{0}, clientCalls{0}, systemCalls{0};
thread_local bool keepingBooks = false;
std::mutex bookLock;

/// While it lives this thread may use the books, and its calls of malloc are not counted.
class Entry {
public:
    Entry() : guard(bookLock) { keepingBooks = true; }
    ~Entry() { keepingBooks = false; }

private:
    std::lock_guard<std::mutex> guard;
};

void CountSystemCall() {
    if (!keepingBooks)
        ++systemCalls;
}

// What the module's heap takes for a block: its header, and a multiple of 16.
size_t HeapCost(size_t size) { return std::max<size_t>(32, 16 + (size + 15) / 16 * 16); }

void* InHeapBook(void* block, size_t size) {
    ++heapCalls;
    const Entry entry;
    if (block)
        books.heap.Add(block, HeapCost(size));
    return block;
}

void* TakeFromClient(void*, size_t, size_t size) {
    ++clientCalls;
    void* block = __libc_malloc(size);
    const Entry entry;
    books.client.Add(block, size);
    return block;
}

void GiveToClient(void*, void* block) {
    const Entry entry;
    books.client.Remove(block);
    std::free(block);
}

/// A thread whose stack was painted before it began.
struct Watched {
    const char* name;
    ThreadEntry entry;
    void* argument;
    uint8_t* stack;
    const uint8_t* top;  // where the thread's own calls begin

    static Watched* Make(const char* name, ThreadEntry entry, void* argument) {
        void* stack = mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (stack == MAP_FAILED)
            std::abort();
        std::memset(stack, kPaint, kStackSize);
        const Entry guard;
        return new Watched{name, entry, argument, static_cast<uint8_t*>(stack), nullptr};
    }
    int Start(pthread_t* id) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstack(&attributes, stack, kStackSize);
        const int result = __real_pthread_create(id, &attributes, Run, this);
        pthread_attr_destroy(&attributes);
        return result;
    }
    static void* Run(void* watched) {
        Watched& self = *static_cast<Watched*>(watched);
        self.top = static_cast<const uint8_t*>(__builtin_frame_address(0));
        void* result = self.entry(self.argument);
        self.Book();
        return result;  // the record and its stack stay: the thread still stands on it
    }
    void Book() const {
        const uint8_t* lowest =
            std::find_if(static_cast<const uint8_t*>(stack), top, [](uint8_t byte) { return byte != kPaint; });
        const size_t used = static_cast<size_t>(top - lowest);
        const Entry guard;
        size_t& most = books.stacks[name];
        most = std::max(most, used);
    }
};

}  // namespace

void Ledger::Add(const void* block, size_t cost) {
    size_t& old = blocks[block];
    live += cost - old;
    old = cost;
    peak = std::max(peak, live);
}

void Ledger::Remove(const void* block) {
    const auto found = blocks.find(block);
    if (found == blocks.end())
        return;
    live -= found->second;
    blocks.erase(found);
}

void Books::Clear() {
    const Entry entry;
    heap = Ledger();
    client = Ledger();
}

Peaks PeaksSoFar() {
    const Entry entry;
    return {books.heap.peak, books.client.peak};
}

Calls CallsSoFar() { return {heapCalls, clientCalls, systemCalls}; }

const ClientAllocator clientMemory = {nullptr, TakeFromClient, GiveToClient};

void RunOnWatchedStack(const char* name, ThreadEntry entry, void* argument) {
    pthread_t id;
    Watched* thread = Watched::Make(name, entry, argument);
    if (thread->Start(&id) != 0 || pthread_join(id, nullptr) != 0)
        std::abort();
    munmap(thread->stack, kStackSize);
    delete thread;
}

}  // namespace kivmp4::bench

// The linker leads the module's calls through here.
using namespace kivmp4::bench;

#define BEHIND(result, function, name, parameters)        \
    result Real##function parameters asm("__real_" name); \
    result Wrap##function parameters asm("__wrap_" name); \
    result Wrap##function parameters

BEHIND(void*, Allocate, KIVMP4_HEAP_ALLOCATE, (void* heap, size_t size, uint32_t mark)) {
    return InHeapBook(RealAllocate(heap, size, mark), size);
}
BEHIND(void*, Aligned, KIVMP4_HEAP_ALIGNED, (void* heap, size_t alignment, size_t size, uint32_t mark)) {
    return InHeapBook(RealAligned(heap, alignment, size, mark), size);
}
BEHIND(bool, Extend, KIVMP4_HEAP_EXTEND, (void* heap, void* block, size_t size)) {
    const bool extended = RealExtend(heap, block, size);
    InHeapBook(extended ? block : nullptr, size);
    return extended;
}
BEHIND(void, Free, KIVMP4_HEAP_FREE, (void* heap, void* block)) {
    const Entry entry;
    books.heap.Remove(block);
    RealFree(heap, block);
}

extern "C" {

int __wrap_pthread_create(pthread_t* id, const pthread_attr_t*, ThreadEntry entry, void* argument) {
    return Watched::Make("module", entry, argument)->Start(id);
}

void* malloc(size_t size) {
    CountSystemCall();
    return __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    CountSystemCall();
    return __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    CountSystemCall();
    return __libc_realloc(block, size);
}

}  // extern "C"
