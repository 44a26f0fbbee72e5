// The heap over a given block: contents stay apart, everything comes back, and nothing foreign harms it.
#include "platform/Heap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace kivmp4::platform {
namespace {

struct Arena {
    explicit Arena(size_t capacity) : memory(capacity + 64), heap(Heap::Create(memory.data(), capacity)) {}
    ~Arena() {
        if (heap)
            heap->Delete();
    }
    std::vector<uint8_t> memory;
    Heap* heap;
};

// A player's block may begin anywhere.
TEST(Heap, AlignsWhereverItsMemoryBegins) {
    std::vector<uint8_t> memory(8192);
    for (size_t start = 0; start < 32; start++) {
        Heap* heap = Heap::Create(memory.data() + start, 8000);
        ASSERT_NE(heap, nullptr) << start;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(heap) % alignof(Heap), 0u) << start;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(heap->Allocate(100)) % 16, 0u) << start;
        heap->Delete();
    }
}

TEST(Heap, KeepsBlocksApartAndComesBackWhole) {
    Arena arena(1 << 20);
    Heap& heap = *arena.heap;
    struct Live {
        uint8_t* block;
        size_t size;
        uint8_t mark;
    };
    std::vector<Live> live;
    std::mt19937 random(7);
    for (int step = 0; step < 30000; ++step) {
        const size_t size = random() % (random() % 16 == 0 ? 60000 : 700);
        if (random() % 2) {
            const size_t alignment = random() % 4 ? 16 : size_t{32} << random() % 6;
            uint8_t* block = static_cast<uint8_t*>(heap.AllocateAligned(alignment, size));
            if (!block)
                continue;
            ASSERT_EQ(reinterpret_cast<uintptr_t>(block) % alignment, 0u);
            live.push_back({block, size, static_cast<uint8_t>(random())});
            std::fill_n(block, size, live.back().mark);
        } else if (!live.empty()) {
            Live& one = live[random() % live.size()];
            if (heap.Extend(one.block, one.size + size)) {
                std::fill_n(one.block + one.size, size, one.mark);
                one.size += size;
            }
            ASSERT_EQ(static_cast<size_t>(std::count(one.block, one.block + one.size, one.mark)), one.size);
            heap.Free(one.block);
            one = live.back();
            live.pop_back();
        }
    }
    ASSERT_GT(live.size(), 20u);
    for (const Live& one : live)
        heap.Free(one.block);
    EXPECT_NE(heap.Allocate((1 << 20) - 4096), nullptr);
}

TEST(Heap, FindsTheLargestOfManyBlocksOfAClass) {
    Arena arena(1 << 17);
    Heap& heap = *arena.heap;
    std::vector<void*> blocks = {heap.Allocate(1056)};
    do
        blocks.push_back(heap.Allocate(16) ? heap.Allocate(1024) : nullptr);
    while (blocks.back());
    while (heap.Allocate(16)) {
    }
    for (void* block : blocks)
        heap.Free(block);
    EXPECT_EQ(heap.Allocate(1056), blocks[0]);
}

TEST(Heap, IgnoresWhatIsNoLiveBlockOfIt) {
    Arena arena(1 << 16);
    Heap& heap = *arena.heap;
    uint8_t* first = static_cast<uint8_t*>(heap.Allocate(100));
    uint8_t* second = static_cast<uint8_t*>(heap.Allocate(100));
    uint8_t elsewhere[64];
    std::fill_n(second, 100, uint8_t{0x5A});
    uint8_t* const start = arena.memory.data();
    for (uint8_t* foreign :
         {static_cast<uint8_t*>(nullptr), elsewhere, second + 1, second + 16, start, start + 65520}) {
        heap.Free(foreign);
        EXPECT_FALSE(heap.Owns(foreign, 1));
        EXPECT_FALSE(heap.Extend(foreign, 50));
    }
    for (size_t size : {size_t{0x80000000}, SIZE_MAX, SIZE_MAX - 2, size_t{1} << 16})
        EXPECT_EQ(heap.AllocateAligned(256, size), nullptr) << size;
    EXPECT_FALSE(heap.Extend(second, size_t{0x80000000}));
    heap.Free(first);
    heap.Free(first);
    EXPECT_TRUE(!heap.Owns(first, 1) && heap.Owns(second, 100) && !heap.Owns(second, 1000));
    EXPECT_EQ(std::count(second, second + 100, 0x5A), 100);
}

}  // namespace
}  // namespace kivmp4::platform
