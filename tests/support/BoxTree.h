// A box tree over bytes in memory, with the module heap that it needs; for tests below the exports.
#pragma once

#include <gtest/gtest.h>

#include <cstring>

#include "container/Mp4Box.h"
#include "support/FailingAllocator.h"
#include "support/Mp4Builder.h"

namespace kivmp4::test {

/// Serves bytes as the file does, after answering "not yet" as often as told.
class MemorySource : public DataSource {
public:
    explicit MemorySource(Bytes content) : bytes(std::move(content)) {}
    ReadStatus Read(int64_t offset, uint32_t size, void* destination) override {
        ++reads;
        if (notReady > 0 && notReady-- > 0)
            return ReadStatus::NotReady;
        if (offset < 0 || static_cast<uint64_t>(offset) + size > bytes.size())
            return ReadStatus::Failed;
        std::memcpy(destination, bytes.data() + offset, size);
        return ReadStatus::Done;
    }
    int64_t GetSize() override { return static_cast<int64_t>(bytes.size()); }

    Bytes bytes;
    int notReady = 0;
    int reads = 0;
};

/// Root() is the box at the beginning of the bytes, File() the one above it.
class BoxTree {
public:
    explicit BoxTree(const Bytes& content, size_t heapCapacity = size_t{1} << 22)
        : heapMemory(heapCapacity), source(content) {
        EXPECT_TRUE(CreateModuleHeap(heapMemory.data(), heapMemory.size()));
        file = ModuleNew<Mp4Box>(memory.Interface(), &source, int64_t{0}, source.GetSize(), 0u, 0u);
    }
    ~BoxTree() {
        delete file;
        DestroyModuleHeap();
        EXPECT_EQ(memory.Outstanding(), 0u);
    }
    Mp4Box& File() { return *file; }
    Mp4Box& Root() { return *file->GetChild(0); }

    std::vector<uint8_t> heapMemory;
    FailingAllocator memory;
    MemorySource source;

private:
    Mp4Box* file = nullptr;
};

}  // namespace kivmp4::test
