// Checksums of bytes, by libgcrypt; a build without it has none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace kivmp4::cli {

/// Throws a Failure where the build has no checksums or the algorithm is unknown.
class Checksum {
public:
    /// @param algorithm  "crc32", "md5" or "sha256"
    explicit Checksum(const std::string& algorithm);
    ~Checksum();
    Checksum(const Checksum&) = delete;
    Checksum& operator=(const Checksum&) = delete;

    void Add(const uint8_t* bytes, size_t count);
    /// In hexadecimal digits. The next bytes begin a new sum.
    std::string Take();

private:
    struct State;
    std::unique_ptr<State> state;
};

}  // namespace kivmp4::cli
