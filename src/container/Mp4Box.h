// One box of the file (ISO/IEC 14496-12, 4.2): where it lies, its children, and its bytes in memory while needed.
#pragma once

#include <atomic>
#include <cstdint>

#include "KivMp4.h"
#include "io/DataSource.h"
#include "platform/LightMutex.h"
#include "support/ByteOrder.h"
#include "support/IndexedList.h"

namespace kivmp4 {

/// A box type: its four bytes in file order as a big-endian number.
constexpr uint32_t FourCc(const char (&type)[5]) {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value = value << 8 | static_cast<uint8_t>(type[i]);
    return value;
}

/// The root stands for the whole file; every other box reads through its parent. Children are listed by the first
/// lookup. Objects live on the module heap; a box owns its children.
class Mp4Box : public DataSource {
public:
    /// @param source   the enclosing box, or the file for the root; borrowed
    /// @param first    offset of the box's header in the enclosing box
    /// @param total    bytes, header included; a child's never reach beyond its parent's
    /// @param header   8 or 16; 0 for the root, whose type is 0 too
    Mp4Box(const ClientAllocator* memory, DataSource* source, int64_t first, int64_t total, uint32_t header,
           uint32_t fourCc);
    ~Mp4Box() override;

    /// Blocks until the source has the bytes: asks again every 90 microseconds.
    /// @return Done, or Failed for good, never NotReady
    ReadStatus Read(int64_t offset, uint32_t count, void* destination) override;
    int64_t GetSize() override { return size; }
    bool IsDataAvailable() override;

    /// Loads the box whole if it is not in memory yet. @return its first byte, header included; null when it is 2 GiB
    /// or more, when memory is missing or reading failed. Given back by one ReleaseData
    const uint8_t* AcquireData() override;
    void ReleaseData() override;

    uint32_t GetType() const { return type; }
    uint32_t GetHeaderSize() const { return headerSize; }

    /// Lists the children. `offset` counts from the end of the header: 0 for ordinary containers. At the file's level
    /// the walk ends after the later of "moov" and "mdat". A child that does not fit ends it.
    void ParseChildren(int64_t offset);

    /// Children listed so far, without a walk.
    uint32_t ListedChildren() const { return children.Count(); }

    // The lookups walk first, as long as no child is listed.
    uint32_t GetChildCount();
    Mp4Box* GetChild(uint32_t position);
    uint32_t CountChildren(uint32_t fourCc);
    Mp4Box* FindNthChild(uint32_t fourCc, uint32_t n);
    Mp4Box* FindChild(uint32_t fourCc) { return FindNthChild(fourCc, 0); }
    /// @return where the first child of that type begins in this box; -1 without one
    int64_t GetChildOffset(uint32_t fourCc);

private:
    bool ReadChildHeader(int64_t position, int64_t& childSize, uint32_t& childHeader, uint32_t& childType);
    void AddChild(int64_t position, int64_t childSize, uint32_t childHeader, uint32_t childType);
    bool Load();
    void Unload();

    const ClientAllocator* allocator;  // borrowed; the same in the whole tree
    DataSource* parent;                // borrowed
    int64_t start;
    int64_t size;
    uint32_t headerSize;
    uint32_t type;
    IndexedList<Mp4Box> children;  // owned; guarded by lock while it changes
    platform::LightMutex lock;
    uint8_t* payload = nullptr;  // owned; the byte before it tells where it came from
    std::atomic<int32_t> payloadRefs{0};
    std::atomic<int32_t> parentRefs{0};  // references taken on the parent, whose payload this box lies in
};

}  // namespace kivmp4
