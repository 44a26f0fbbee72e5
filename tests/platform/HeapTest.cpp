// The heap over a given block: contents stay apart, everything comes back, and nothing foreign harms it.
#include "platform/Heap.h"

#include <gtest/gtest.h>

#include <cstring>
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

size_t LargestBlock(Heap& heap, size_t limit) {
    size_t low = 0, high = limit;
    while (low < high) {
        const size_t middle = (low + high + 1) / 2;
        void* block = heap.Allocate(middle);
        heap.Free(block);
        if (block)
            low = middle;
        else
            high = middle - 1;
    }
    return low;
}

TEST(Heap, KeepsBlocksApartAndComesBackWhole) {
    constexpr size_t kCapacity = 1 << 20;
    Arena arena(kCapacity);
    ASSERT_NE(arena.heap, nullptr);
    const size_t whole = LargestBlock(*arena.heap, kCapacity);
    struct Live {
        uint8_t* block;
        size_t size;
        uint8_t mark;
    };
    std::vector<Live> live;
    std::mt19937 random(7);
    const auto isIntact = [](const Live& one) {
        for (size_t i = 0; i < one.size; ++i)
            if (one.block[i] != one.mark)
                return false;
        return true;
    };
    for (int step = 0; step < 30000; ++step) {
        const uint32_t choice = random() % 8;
        const size_t size = random() % (random() % 16 == 0 ? 60000 : 700);
        if (choice < 4) {
            const size_t alignment = choice == 0 ? size_t{32} << random() % 6 : 16;
            void* block = choice == 0 ? arena.heap->AllocateAligned(alignment, size) : arena.heap->Allocate(size);
            if (!block)
                continue;
            ASSERT_EQ(reinterpret_cast<uintptr_t>(block) % alignment, 0u);
            const uint8_t mark = static_cast<uint8_t>(random());
            std::memset(block, mark, size);
            live.push_back({static_cast<uint8_t*>(block), size, mark});
        } else if (!live.empty()) {
            Live& one = live[random() % live.size()];
            ASSERT_TRUE(isIntact(one));
            if (choice == 4 && arena.heap->Extend(one.block, one.size + size)) {
                ASSERT_TRUE(isIntact(one));
                one.size += size;
                std::memset(one.block, one.mark, one.size);
            } else if (choice > 4) {
                arena.heap->Free(one.block);
                one = live.back();
                live.pop_back();
            }
        }
    }
    ASSERT_GT(live.size(), 20u);
    for (const Live& one : live)
        arena.heap->Free(one.block);
    EXPECT_EQ(LargestBlock(*arena.heap, kCapacity), whole);
}

TEST(Heap, IgnoresWhatIsNoLiveBlockOfIt) {
    Arena arena(1 << 16);
    Heap& heap = *arena.heap;
    uint8_t* first = static_cast<uint8_t*>(heap.Allocate(100));
    uint8_t* second = static_cast<uint8_t*>(heap.Allocate(100));
    uint8_t elsewhere[64];
    std::memset(second, 0x5A, 100);
    uint8_t* const start = arena.memory.data();
    for (uint8_t* foreign : {static_cast<uint8_t*>(nullptr), elsewhere, second + 1, second + 16, start, start + 65520}) {
        heap.Free(foreign);
        EXPECT_FALSE(heap.Owns(foreign, 1));
        EXPECT_FALSE(heap.Extend(foreign, 50));
    }
    for (size_t size : {size_t{0x80000000}, SIZE_MAX, SIZE_MAX - 2, size_t{1} << 16})
        EXPECT_EQ(heap.AllocateAligned(256, size), nullptr) << size;
    heap.Free(first);
    heap.Free(first);
    EXPECT_FALSE(heap.Owns(first, 1));
    EXPECT_TRUE(heap.Owns(second, 100));
    EXPECT_FALSE(heap.Owns(second, 1000));
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(second[i], 0x5A);
}

TEST(Heap, TellsBlocksOfAnEarlierHeapOverTheSameMemory) {
    std::vector<uint8_t> memory(1 << 16);
    Heap* before = Heap::Create(memory.data(), memory.size());
    void* kept = before->Allocate(1000);
    before->Delete();
    Heap* now = Heap::Create(memory.data(), memory.size());
    void* own = now->Allocate(40000);  // lies over what was kept
    EXPECT_FALSE(now->Owns(kept, 1) && kept != own);
    void* behind = now->Allocate(100);
    before->Free(kept == own ? nullptr : kept);
    EXPECT_TRUE(now->Owns(own, 40000));
    EXPECT_TRUE(now->Owns(behind, 100));
    now->Delete();
}

TEST(Heap, StaysInsideItsMemoryWhateverTheCapacity) {
    for (size_t capacity = 0; capacity < 5000; capacity += 37) {
        for (size_t skew : {0u, 1u, 7u, 15u}) {
            std::vector<uint8_t> memory(capacity + 64, 0xC3);
            Heap* heap = Heap::Create(memory.data() + 16 + skew, capacity);
            if (heap) {
                while (void* block = heap->Allocate(24))
                    std::memset(block, 0, 24);
                heap->Delete();
            }
            for (size_t i = 0; i < 16 + skew; ++i)
                ASSERT_EQ(memory[i], 0xC3) << capacity;
            for (size_t i = 16 + skew + capacity; i < memory.size(); ++i)
                ASSERT_EQ(memory[i], 0xC3) << capacity;
        }
    }
    EXPECT_EQ(Heap::Create(nullptr, 1 << 20), nullptr);
}

}  // namespace
}  // namespace kivmp4::platform
