// Redirects standard error into a temporary file for its life, whichever thread writes there.
#pragma once

#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <string>

extern "C" [[gnu::weak]] void __sanitizer_set_report_fd(void*);  // null without a sanitizer

namespace kivmp4::test {

class LogCapture {
public:
    LogCapture() : file(std::tmpfile()), saved(dup(2)) { Redirect(fileno(file), saved); }
    ~LogCapture() {
        Redirect(saved, 2);
        close(saved);
        std::fclose(file);
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::string Text() const {
        std::fflush(stderr);
        std::string text;
        char part[4096];
        for (ssize_t got; (got = pread(fileno(file), part, sizeof part, static_cast<off_t>(text.size()))) > 0;)
            text.append(part, static_cast<size_t>(got));
        return text;
    }
    bool Has(const std::string& part) const { return Text().find(part) != std::string::npos; }

private:
    // The sanitizers' reports stay visible.
    static void Redirect(int target, int reports) {
        std::fflush(stderr);
        dup2(target, 2);
        if (__sanitizer_set_report_fd)
            __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(reports)));
    }

    std::FILE* file;
    int saved;
};

}  // namespace kivmp4::test
