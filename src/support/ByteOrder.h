// Decoding of multi-byte fields, and views of bytes that cannot be read beyond their end.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kivmp4 {

inline uint16_t ReadBE16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
inline uint32_t ReadBE24(const uint8_t* p) { return static_cast<uint32_t>(p[0]) << 16 | ReadBE16(p + 1); }
inline uint32_t ReadBE32(const uint8_t* p) { return static_cast<uint32_t>(p[0]) << 24 | ReadBE24(p + 1); }
inline uint64_t ReadBE64(const uint8_t* p) { return static_cast<uint64_t>(ReadBE32(p)) << 32 | ReadBE32(p + 4); }
inline uint16_t ReadLE16(const uint8_t* p) { return static_cast<uint16_t>(p[1] << 8 | p[0]); }
inline uint32_t ReadLE32(const uint8_t* p) { return static_cast<uint32_t>(ReadLE16(p + 2)) << 16 | ReadLE16(p); }

/// Bytes of somebody else's memory with their end. Fields that do not lie wholly inside read as 0.
struct ByteView {
    const uint8_t* data = nullptr;
    size_t size = 0;

    bool Has(size_t offset, size_t count) const { return offset <= size && count <= size - offset; }

    uint8_t U8(size_t offset) const { return Has(offset, 1) ? data[offset] : uint8_t{0}; }
    uint16_t BE16(size_t offset) const { return Has(offset, 2) ? ReadBE16(data + offset) : uint16_t{0}; }
    uint32_t BE24(size_t offset) const { return Has(offset, 3) ? ReadBE24(data + offset) : 0; }
    uint32_t BE32(size_t offset) const { return Has(offset, 4) ? ReadBE32(data + offset) : 0; }
    uint64_t BE64(size_t offset) const { return Has(offset, 8) ? ReadBE64(data + offset) : 0; }
    uint16_t LE16(size_t offset) const { return Has(offset, 2) ? ReadLE16(data + offset) : uint16_t{0}; }
    uint32_t LE32(size_t offset) const { return Has(offset, 4) ? ReadLE32(data + offset) : 0; }

    /// Everything from `offset` on; empty when that lies past the end.
    ByteView From(size_t offset) const { return offset <= size ? ByteView{data + offset, size - offset} : ByteView{}; }
};

}  // namespace kivmp4
