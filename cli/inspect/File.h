// The bytes of a file: the one place that knows where the file ends.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kivmp4::inspect {

using Bytes = std::vector<uint8_t>;

/// A regular file read at offsets, or bytes in memory. Nothing read here reaches past the end.
class File {
public:
    /// Bytes that stand for a file.
    explicit File(Bytes content);
    /// A file that Open fills.
    File() = default;
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    /// @param path  "-" for standard input
    /// @return 0, or the errno that tells why not; EISDIR and EINVAL for what is not a regular file
    [[nodiscard]] int Open(const std::string& path);

    uint64_t Size() const { return size; }
    /// errno of the first read that the system refused, else 0; EIO when the file has become shorter. Any thread.
    int ReadError() const { return readError.load(); }
    /// Copies what there is of `count` bytes from `offset` on. Any thread. @return how many
    size_t Read(uint64_t offset, void* destination, size_t count) const;
    /// At most `limit` of the `count` bytes from `offset` on: as many as the file has. Allocates no more than that.
    Bytes ReadBytes(uint64_t offset, uint64_t count, size_t limit) const;
    /// Whether `path` leads to this very file.
    bool Is(const std::string& path) const;

    /// Reads that the process has asked the system for, and those that have returned: for whom a read takes too long.
    static uint32_t ReadsBegun() { return begun.load(); }
    static uint32_t ReadsEnded() { return ended.load(); }

private:
    inline static std::atomic<uint32_t> begun{0}, ended{0};

    Bytes memory;
    int descriptor = -1;  // owned
    uint64_t size = 0;
    mutable std::atomic<int> readError{0};
};

inline uint64_t ReadNumber(const uint8_t* bytes, int count) {
    uint64_t value = 0;
    for (int i = 0; i < count; i++)
        value = value << 8 | bytes[i];
    return value;
}

/// Fields of a block of bytes, one after the other; past the end they read as 0 and `Failed` says so.
class Fields {
public:
    explicit Fields(const Bytes& from) : bytes(from) {}

    uint64_t Unsigned(int count) {
        if (!Has(static_cast<size_t>(count)))
            return 0;
        position += static_cast<size_t>(count);
        return ReadNumber(bytes.data() + position - count, count);
    }
    uint32_t U32() { return static_cast<uint32_t>(Unsigned(4)); }
    uint16_t U16() { return static_cast<uint16_t>(Unsigned(2)); }
    uint8_t U8() { return static_cast<uint8_t>(Unsigned(1)); }
    void Skip(size_t count) {
        if (Has(count))
            position += count;
    }
    Bytes Take(size_t count) {
        if (!Has(count))
            return {};
        const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(position);
        position += count;
        return Bytes(first, first + static_cast<std::ptrdiff_t>(count));
    }
    size_t Left() const { return bytes.size() - position; }
    bool Failed() const { return failed; }

private:
    bool Has(size_t count) {
        if (count > Left()) {
            failed = true;
            position = bytes.size();
        }
        return !failed;
    }

    const Bytes& bytes;
    size_t position = 0;
    bool failed = false;
};

}  // namespace kivmp4::inspect
