// A loaded box's content, held for as long as the object lives.
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

}  // namespace kivmp4
