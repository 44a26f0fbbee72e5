// Threads and delay over the host's threads library.
#include "platform/Thread.h"

#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <cstring>

#include "platform/SlotTable.h"

namespace kivmp4::platform {
namespace {

// The player's read function runs on this stack too, and so do sanitizers' interceptors.
constexpr size_t kHostStackSize = 256 * 1024;
constexpr size_t kHostNameSize = 16;  // with its zero byte; longer names are refused as a whole

struct Thread {
    pthread_t handle;
    char name[kHostNameSize];
    ThreadEntry entry;
    void* argument;
    size_t stackSize;
    bool started;
};

SlotTable<Thread, 32> threads;

void* Run(void* context) {
    Thread* thread = static_cast<Thread*>(context);
    pthread_setname_np(pthread_self(), thread->name);
    return reinterpret_cast<void*>(static_cast<intptr_t>(thread->entry(thread->argument)));
}

}  // namespace

int32_t ThreadCreate(const char* name, ThreadEntry entry, int32_t, size_t stackSize) {
    const int32_t id = threads.Acquire();
    if (id < 0)
        return -1;
    Thread* thread = threads.Find(id);
    *thread = {};
    std::strncpy(thread->name, name, kHostNameSize - 1);
    thread->entry = entry;
    thread->stackSize = std::max(stackSize, kHostStackSize);
    return id;
}

int32_t ThreadStart(int32_t id, void* argument) {
    Thread* thread = threads.Find(id);
    if (!thread)
        return -1;
    thread->argument = argument;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, thread->stackSize);
    thread->started = pthread_create(&thread->handle, &attributes, Run, thread) == 0;
    pthread_attr_destroy(&attributes);
    return thread->started ? 0 : -1;
}

int32_t ThreadWait(int32_t id) {
    Thread* thread = threads.Find(id);
    if (!thread || !thread->started)
        return -1;
    pthread_join(thread->handle, nullptr);
    thread->started = false;
    return 0;
}

int32_t ThreadDelete(int32_t id) {
    Thread* thread = threads.Find(id);
    if (!thread)
        return -1;
    threads.Release(id);
    return 0;
}

void DelayMicroseconds(uint32_t microseconds) {
    timespec left = {static_cast<time_t>(microseconds / 1000000), static_cast<long>(microseconds % 1000000) * 1000};
    while (nanosleep(&left, &left) != 0) {  // a signal came
    }
}

}  // namespace kivmp4::platform
