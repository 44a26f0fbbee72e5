// Child walk, reading and loading of boxes.
#include "container/Mp4Box.h"

#include <cstring>

#include "platform/Clock.h"
#include "support/ClientMemory.h"

namespace kivmp4 {
namespace {

constexpr int64_t kTooLarge = 0x80000000;
constexpr int64_t kSmallPayload = 1024;  // up to here the module heap holds it
constexpr uint8_t kFromModuleHeap = 0xDE;
constexpr uint8_t kFromClient = 0xDD;

}  // namespace

Mp4Box::Mp4Box(const ClientAllocator* memory, DataSource* source, int64_t first, int64_t total, uint32_t header,
               uint32_t fourCc)
    : allocator(memory), parent(source), start(first), size(total), headerSize(header), type(fourCc) {
    lock.Create("DemuxStlHandler");
}

Mp4Box::~Mp4Box() {
    for (uint32_t position = 0; position < children.Count(); ++position)
        delete children.At(position);
    while (children.Count() > 0) {
        lock.Lock();
        children.RemoveLast();
        lock.Unlock();
    }
    lock.Delete();
}

ReadStatus Mp4Box::Read(int64_t offset, uint32_t count, void* destination) {
    if (IsDataAvailable()) {
        const uint8_t* bytes = AcquireData();  // never null: nothing has to be loaded
        const bool inside = offset >= 0 && count <= size - offset;
        if (inside)
            std::memcpy(destination, bytes + offset, count);
        ReleaseData();
        return inside ? ReadStatus::Done : ReadStatus::Failed;
    }
    // Offsets come from sample tables too: a sum that wraps lies past every file's end.
    const int64_t position = static_cast<int64_t>(static_cast<uint64_t>(offset) + static_cast<uint64_t>(start));
    for (;;) {
        const ReadStatus status = parent->Read(position, count, destination);
        if (status == ReadStatus::Done || status == ReadStatus::Failed)
            return status;
        platform::DelayMicroseconds(kRetryDelay);
    }
}

bool Mp4Box::IsDataAvailable() { return payloadRefs > 0 || parent->IsDataAvailable(); }

const uint8_t* Mp4Box::AcquireData() {
    if (size >= kTooLarge)
        return nullptr;
    if (!payload && parent->IsDataAvailable()) {
        ++parentRefs;
        return parent->AcquireData() + start;
    }
    if (!payload && !Load())
        return nullptr;
    ++payloadRefs;
    return payload;
}

bool Mp4Box::Load() {
    const uint64_t blockSize = static_cast<uint64_t>(size) + 1;
    const bool small = size <= kSmallPayload;
    void* block = small ? ModuleAlloc(1, static_cast<size_t>(blockSize)) : ClientAlloc(allocator, 1, blockSize);
    if (!block)
        return false;
    payload = static_cast<uint8_t*>(block) + 1;
    payload[-1] = small ? kFromModuleHeap : kFromClient;
    if (Read(0, static_cast<uint32_t>(size), payload) == ReadStatus::Done)
        return true;
    Unload();
    return false;
}

void Mp4Box::Unload() {
    if (payload[-1] == kFromModuleHeap)
        ModuleFree(payload - 1);
    else
        ClientFree(allocator, payload - 1);
    payload = nullptr;
}

// Counts what was taken instead of asking the parent: at the end the file below the root is gone already.
void Mp4Box::ReleaseData() {
    if (parentRefs > 0) {
        --parentRefs;
        parent->ReleaseData();
    } else if (payloadRefs > 0 && --payloadRefs == 0) {
        Unload();
    }
}

// @return false when the walk ends here
bool Mp4Box::ReadChildHeader(int64_t position, int64_t& childSize, uint32_t& childHeader, uint32_t& childType) {
    uint8_t field[8];
    if (Read(position, sizeof(field), field) != ReadStatus::Done)
        return false;
    const int32_t size32 = static_cast<int32_t>(ReadBE32(field));
    childType = ReadBE32(field + 4);
    childHeader = 8;
    childSize = size32;
    if (size32 == 1) {
        if (Read(position + 8, sizeof(field), field) != ReadStatus::Done)
            return false;
        childSize = static_cast<int64_t>(ReadBE64(field));
        childHeader = 16;
    } else if (size32 == 0) {
        childSize = size - position;
    }
    return childSize >= childHeader && childSize <= size - position;
}

void Mp4Box::ParseChildren(int64_t offset) {
    bool moovSeen = false, mdatSeen = false;
    int64_t position = offset + headerSize;
    while (position < size && !(moovSeen && mdatSeen)) {
        int64_t childSize = 0;
        uint32_t childHeader = 0, childType = 0;
        if (!ReadChildHeader(position, childSize, childHeader, childType))
            return;
        moovSeen |= childType == FourCc("moov");
        mdatSeen |= childType == FourCc("mdat");
        AddChild(position, childSize, childHeader, childType);
        position += childSize;
    }
}

// A child for which there is no memory is passed over.
void Mp4Box::AddChild(int64_t position, int64_t childSize, uint32_t childHeader, uint32_t childType) {
    Mp4Box* child = ModuleNew<Mp4Box>(allocator, this, position, childSize, childHeader, childType);
    if (!child)
        return;
    lock.Lock();
    const bool listed = children.Append(child);
    lock.Unlock();
    if (!listed)
        delete child;
}

uint32_t Mp4Box::GetChildCount() {
    if (children.Count() == 0)
        ParseChildren(0);
    return children.Count();
}

Mp4Box* Mp4Box::GetChild(uint32_t position) { return position < GetChildCount() ? children.At(position) : nullptr; }

uint32_t Mp4Box::CountChildren(uint32_t fourCc) {
    uint32_t found = 0;
    for (uint32_t position = 0; position < GetChildCount(); ++position)
        found += children.At(position)->type == fourCc;
    return found;
}

Mp4Box* Mp4Box::FindNthChild(uint32_t fourCc, uint32_t n) {
    const uint32_t count = GetChildCount();
    for (uint32_t position = 0; position < count; ++position) {
        Mp4Box* child = children.At(position);
        if (child->type == fourCc && n-- == 0)
            return child;
    }
    return nullptr;
}

int64_t Mp4Box::GetChildOffset(uint32_t fourCc) {
    const Mp4Box* child = FindChild(fourCc);
    return child ? child->start : -1;
}

}  // namespace kivmp4
