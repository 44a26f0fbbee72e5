// A loaded box's content, given back when it goes out of sight.
#pragma once

#include "container/Mp4Box.h"

namespace kivmp4 {

/// Holds one payload reference. Zeroed memory holds nothing.
class BoxContent {
public:
    BoxContent() = default;
    explicit BoxContent(Mp4Box* source) { Acquire(source); }
    ~BoxContent() { Release(); }
    BoxContent(const BoxContent&) = delete;
    BoxContent& operator=(const BoxContent&) = delete;

    /// @param source  may be null. @return whether the content is in memory now
    bool Acquire(Mp4Box* source) {
        Release();
        const uint8_t* bytes = source ? source->AcquireData() : nullptr;
        if (!bytes)
            return false;
        box = source;
        const size_t header = source->GetHeaderSize();
        content = {bytes + header, static_cast<size_t>(source->GetSize()) - header};
        return true;
    }

    void Release() {
        if (box)
            box->ReleaseData();
        box = nullptr;
        content = {};
    }

    explicit operator bool() const { return box != nullptr; }
    const ByteView& operator*() const { return content; }
    const ByteView* operator->() const { return &content; }

private:
    Mp4Box* box = nullptr;  // borrowed
    ByteView content;       // from the end of the header; version and flags first where the box has them
};

/// Sample tables begin with version and flags, an entry count and then the entries (ISO/IEC 14496-12, 8.6 and 8.7).
constexpr size_t kTableHeader = 8;

/// A forged count must not carry anybody beyond the payload. @return entries that are stated and present
inline uint32_t TableEntries(const ByteView& table, size_t entrySize) {
    const size_t present = table.size < kTableHeader ? 0 : (table.size - kTableHeader) / entrySize;
    const uint32_t stated = table.BE32(4);
    return stated < present ? stated : static_cast<uint32_t>(present);
}

}  // namespace kivmp4
