// Positioned reads through the streaming reader: byte-exact at every edge of its blocks.
#include "io/FileReader.h"

#include <gtest/gtest.h>

#include <random>

#include "io/FileSource.h"
#include "support/MemoryFile.h"

namespace kivmp4::test {
namespace {

constexpr int64_t kBlock = 0x10000;

Bytes Pattern(int64_t size) {
    Bytes bytes(static_cast<size_t>(size));
    std::generate(bytes.begin(), bytes.end(),
                  [random = std::mt19937(11)]() mutable { return static_cast<uint8_t>(random()); });
    return bytes;
}

/// A reader over a file, asked the way boxes ask: again while it says "not yet".
class Streaming {
public:
    explicit Streaming(Bytes content) : file(std::move(content)), heapMemory(1 << 20) {
        EXPECT_TRUE(CreateModuleHeap(heapMemory.data(), heapMemory.size()));
        reader = ModuleNew<FileReader>(0);
        source = ModuleNew<FileSource>(reader, 0);
        EXPECT_EQ(reader->Open("clip.mp4", 0, file.Interface(), 0), ReadStatus::Done);
    }
    ~Streaming() {
        EXPECT_EQ(source->Close(), 0);
        delete source;
        DestroyModuleHeap();
        EXPECT_EQ(file.Opens(), file.Closes());
        EXPECT_TRUE(file.Violations().empty()) << file.Violations()[0];
    }
    ReadStatus Read(int64_t offset, uint32_t size) {
        got.assign(size + 1, 0xEE);
        ReadStatus status;
        while ((status = source->Read(offset, size, got.data())) == ReadStatus::NotReady)
            std::this_thread::yield();
        EXPECT_EQ(got.back(), 0xEE) << "writes past the destination";
        got.pop_back();
        return status;
    }
    void ExpectBytes(int64_t offset, uint32_t size) {
        ASSERT_EQ(Read(offset, size), ReadStatus::Done) << offset << ' ' << size;
        ASSERT_TRUE(std::equal(got.begin(), got.end(), file.bytes.data() + offset)) << offset << ' ' << size;
    }

    MemoryFile file;
    std::vector<uint8_t> heapMemory;
    FileReader* reader;
    FileSource* source;
    Bytes got;
};

TEST(FileReader, DeliversTheFilesBytesAtEveryEdge) {
    for (const int64_t size : {kBlock - 1, kBlock, kBlock + 1, 3 * kBlock - 1, 3 * kBlock, 4 * kBlock + 1}) {
        SCOPED_TRACE(size);
        Streaming s(Pattern(size));
        std::vector<int64_t> edges = {0, 1};
        for (int64_t edge = kBlock; edge <= size; edge += kBlock)
            edges.insert(edges.end(), {edge - 1, edge, edge + 1});
        edges.insert(edges.end(), {size - 1, size});
        for (const int64_t from : edges)
            for (const uint32_t count : {0u, 1u, 2u, 65535u, 65536u, 65537u})
                if (from + count <= size)
                    s.ExpectBytes(from, count);
        std::mt19937 random(5);
        for (int i = 0; i < 100; ++i) {
            const int64_t from = random() % size;
            s.ExpectBytes(from, static_cast<uint32_t>(std::min<int64_t>(size - from, random() % 70000)));
        }
    }
}

}  // namespace
}  // namespace kivmp4::test
