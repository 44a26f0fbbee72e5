// Threads over the host's threads library.
#include "platform/Thread.h"

#include <algorithm>
#include <cstring>

namespace kivmp4::platform {
namespace {

constexpr size_t kMinimumStack = 256 * 1024;  // sanitizers' interceptors run on it too

}  // namespace

void* Thread::Run(void* context) {
    Thread* thread = static_cast<Thread*>(context);
    pthread_setname_np(pthread_self(), thread->name);
    thread->entry(thread->argument);
    return nullptr;
}

bool Thread::Start(const char* label, ThreadEntry run, void* with, int32_t, size_t stackSize) {
    std::strncpy(name, label, kHostNameSize - 1);
    entry = run;
    argument = with;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::max(stackSize, kMinimumStack));
    started = pthread_create(&handle, &attributes, Run, this) == 0;
    pthread_attr_destroy(&attributes);
    return started;
}

void Thread::Join() {
    if (started)
        pthread_join(handle, nullptr);
    started = false;
}

}  // namespace kivmp4::platform
