// Ends the command in good order when it is interrupted or stands still.
#pragma once

#include <pthread.h>

#include <atomic>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace kivmp4::cli {

/// A thread that receives SIGINT, SIGTERM and SIGHUP for the whole process, and watches the reads under way.
///
/// On a signal, or when no read returns for too long, it removes the unfinished output files and the progress line, and ends
/// the process. It is the first object of the process to be made: threads started later leave the signals to it.
class Guard {
public:
    Guard();
    ~Guard();
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

    /// Seconds that a read may take before the process ends with exit code 7; 0 for any time. Any thread.
    void SetTimeout(double seconds) { timeout.store(seconds); }

private:
    void Watch();

    std::atomic<double> timeout{0};
    std::atomic<bool> stop{false};
    std::thread thread;
};

/// An output file that goes away again unless it is finished. What is unfinished when the process is interrupted, the
/// guard removes.
class Unfinished {
public:
    /// @param path  of the file to write to, which is about to be made
    explicit Unfinished(const std::string& path);
    /// Removes the file unless Finish was called.
    ~Unfinished();
    Unfinished(const Unfinished&) = delete;
    Unfinished& operator=(const Unfinished&) = delete;

    /// Gives the file its name. @return 0 or errno
    int Finish(const std::string& name);

private:
    std::list<std::string>::iterator entry;
    bool there = true;
};

/// Whether the line on standard error is to be erased when the process ends.
void ProgressLineShown(bool shown);

}  // namespace kivmp4::cli
