// Positioned reads through the streaming reader: byte-exact at every edge of its blocks.
#include "io/FileReader.h"

#include <gtest/gtest.h>

#include <random>

#include "io/FileSource.h"
#include "support/LogCapture.h"
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
    explicit Streaming(Bytes content, int32_t level = 0) : file(std::move(content)), heapMemory(1 << 20) {
        EXPECT_TRUE(CreateModuleHeap(heapMemory.data(), heapMemory.size()));
        reader = ModuleNew<FileReader>(level);
        source = ModuleNew<FileSource>(reader, level);
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
        EXPECT_EQ(got.back(), 0xEE) << "writes behind the destination";
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

TEST(FileReader, RefusesReadsBeyondTheEndAndReadsRawInTrickMode) {
    LogCapture log;
    Streaming s(Pattern(100000), 4);
    s.ExpectBytes(99000, 1000);
    const std::pair<int64_t, uint32_t> beyond[] = {{99000, 1001},  {100000, 1},    {-1, 1},    {INT64_MAX, 70000},
                                                   {INT64_MIN, 1}, {30000, 70001}, {100001, 0}};
    for (const auto& [offset, size] : beyond)
        EXPECT_EQ(s.Read(offset, size), ReadStatus::Failed) << offset;
    EXPECT_TRUE(
        log.Has("E/ Read [256]: Read():  File End reached. Cannot get 1001 at 99000 as it crosses 100000 \n\n"));
    s.reader->Flush();
    s.reader->Flush();
    s.ExpectBytes(77, 7);
    s.ExpectBytes(3, 0);  // nothing to ask for
    EXPECT_EQ(s.file.Reads().back(), 77);
    EXPECT_EQ(log.Count("D/ Read [269]: RAW READ:  Size: 7, Position: 77  \n\n"), 1);
    s.reader->ResumeBuffering();
    s.ExpectBytes(0, 1000);
}

}  // namespace
}  // namespace kivmp4::test
