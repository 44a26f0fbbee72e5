// Ends the command in good order when it is interrupted or stands still.
#include "print/Guard.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>

#include "inspect/File.h"
#include "print/Failure.h"

namespace kivmp4::cli {

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<bool> lineShown{false};

// Guards the list and the files that it names: who ends the process holds it to the end, so that no file is given its
// name after that.
std::mutex filesMutex;
std::list<std::string> files;

sigset_t EndingSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1})
        sigaddset(&set, signal);
    return set;
}

// Leaves filesMutex locked.
void CleanUp() {
    filesMutex.lock();
    for (const std::string& path : files)
        unlink(path.c_str());
    if (lineShown.load())
        std::fputs("\r\033[K", stderr);
}

[[noreturn]] void EndBySignal(int signal) {
    CleanUp();
    std::signal(signal, SIG_DFL);
    sigset_t set = EndingSignals();
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    raise(signal);
    _exit(128 + signal);
}

[[noreturn]] void EndByTimeout(double seconds) {
    CleanUp();
    std::fprintf(stderr,
                 "kivmp4: no progress for %g s: a read of the file does not return\n"
                 "        hint: --timeout 0 waits for any time\n",
                 seconds);
    _exit(kLimit);
}

}  // namespace

Guard::Guard() {
    const sigset_t set = EndingSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    thread = std::thread([this] { Watch(); });
}

Guard::~Guard() {
    stop.store(true);
    pthread_kill(thread.native_handle(), SIGUSR1);
    thread.join();
}

void Guard::Watch() {
    const sigset_t set = EndingSignals();
    constexpr timespec kInterval = {0, 200 * 1000 * 1000};
    uint32_t seen = 0;
    Clock::time_point since = Clock::now();
    while (!stop.load()) {
        const int signal = sigtimedwait(&set, nullptr, &kInterval);
        if (signal == SIGINT || signal == SIGTERM || signal == SIGHUP)
            EndBySignal(signal);
        const uint32_t ended = inspect::File::ReadsEnded();
        if (ended != seen || inspect::File::ReadsBegun() == ended)
            since = Clock::now();
        seen = ended;
        const double limit = timeout.load();
        if (limit > 0 && Clock::now() - since > std::chrono::duration<double>(limit))
            EndByTimeout(limit);
    }
}

Unfinished::Unfinished(const std::string& path) {
    const std::lock_guard lock(filesMutex);
    entry = files.insert(files.end(), path);
}

Unfinished::~Unfinished() {
    const std::lock_guard lock(filesMutex);
    if (there)
        unlink(entry->c_str());
    files.erase(entry);
}

int Unfinished::Finish(const std::string& name) {
    const std::lock_guard lock(filesMutex);
    if (std::rename(entry->c_str(), name.c_str()) != 0)
        return errno;
    there = false;
    return 0;
}

void ProgressLineShown(bool shown) { lineShown.store(shown); }

}  // namespace kivmp4::cli
