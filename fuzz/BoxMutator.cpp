// Mutations that know boxes: hostile numbers in them; whole ones copied, dropped, grown, mostly with the right sizes.
#include <algorithm>
#include <cstdint>
#include <numeric>
#include <random>
#include <vector>

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint64_t kHostile[] = {0,          1,          2,          7,          8,          9,
                                 15,         16,         0x80,       0xFF,       0x7FFF,     0x8000,
                                 0xFFFF,     0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0xFFFFFFF8, 0x3FFFFFFF,
                                 0x40000001, 0x20000000, INT64_MAX,  1ull << 63};

struct Box {
    size_t begin, end;
};

struct Mutation {
    Bytes bytes;
    const size_t maxSize;
    std::minstd_rand random;
    size_t scriptSize = bytes.empty() ? 0 : std::min<size_t>(bytes.back(), bytes.size() - 1);
    std::vector<Box> boxes = {};

    void Apply() {
        List(0, bytes.size() - std::min(bytes.size(), scriptSize + 1), 0);
        const uint32_t kind = boxes.empty() ? 0 : Below(16);
        const Box box = kind ? boxes[Below(boxes.size())] : Box{};
        if (kind < 4)
            Havoc(0, bytes.size());
        else if (kind < 9)
            SetNumber(box);
        else if (kind < 11)
            Havoc(box.begin + 8, box.end);
        else if (kind < 12)
            Replace(box.begin, box.end, {});
        else if (kind < 13)
            Copy(box, boxes[Below(boxes.size())].begin);
        else
            ChangeScript();
    }

    uint32_t Below(size_t limit) { return static_cast<uint32_t>(random() % limit); }
    auto At(size_t offset) { return bytes.begin() + static_cast<std::ptrdiff_t>(offset); }

    uint64_t Load(size_t at, size_t width) {
        return std::accumulate(At(at), At(at + width), uint64_t{0}, [](auto sum, uint8_t c) { return sum << 8 | c; });
    }
    void Store(size_t at, size_t width, uint64_t value) {
        for (size_t i = width; i-- > 0; value >>= 8)
            bytes[at + i] = static_cast<uint8_t>(value);
    }

    // A size that fits and four letters make a box; what stands before the first one is the enclosing box's own.
    size_t BoxSize(size_t at, size_t end) {
        const uint64_t size = end - at < 8 ? 0 : Load(at, 4);
        const bool named = size >= 8 && std::all_of(At(at + 4), At(at + 8), [](uint8_t c) { return c >= ' '; });
        return named && size <= end - at ? static_cast<size_t>(size) : 0;
    }
    void List(size_t at, size_t end, int depth) {
        for (int skip = 0; depth > 0 && skip < 100 && at < end && !BoxSize(at, end); ++skip)
            ++at;
        for (size_t size; at < end && (size = BoxSize(at, end)) != 0; at += size) {
            boxes.push_back({at, at + size});
            if (depth < 10)
                List(at + 8, at + size, depth + 1);
        }
    }

    // The sizes around the place follow, mostly.
    void Replace(size_t begin, size_t end, const Bytes& by) {
        if (bytes.size() - (end - begin) + by.size() > maxSize)
            return;
        for (const Box& box : boxes)
            if (box.begin < begin && begin < box.end && end <= box.end && Below(16))
                Store(box.begin, 4, box.end - box.begin - (end - begin) + by.size());
        bytes.erase(At(begin), At(end));
        bytes.insert(At(begin), by.begin(), by.end());
    }
    void Copy(const Box& box, size_t to) { Replace(to, to, Bytes(At(box.begin), At(box.end))); }
    void Havoc(size_t begin, size_t end) {
        if (begin == end && bytes.size() == maxSize)
            return;
        Bytes part(At(begin), At(end));
        part.resize(part.size() + std::min(maxSize - bytes.size(), part.size() + 1));
        part.resize(LLVMFuzzerMutate(part.data(), end - begin, part.size()));
        Replace(begin, end, part);
    }

    // Fields mostly stand on multiples of four from the box's beginning, the telling ones early.
    void SetNumber(const Box& box) {
        const size_t width = Below(6) ? 4 : size_t{1} << Below(4), size = box.end - box.begin;
        const size_t from = Below(Below(4) ? std::min<size_t>(size, 40) : size) / width * width;
        const size_t at = box.begin + std::min(from, size - width);
        const uint64_t now = Load(at, width), hostile = kHostile[Below(std::size(kHostile))];
        Store(at, width, Below(4) ? hostile : now + Below(3) - 1);
    }

    // The script stands at the end, after it a byte for its size, which follows.
    void ChangeScript() {
        const size_t script = bytes.size() - 1 - scriptSize;
        Havoc(script, bytes.size() - 1);
        bytes.back() = static_cast<uint8_t>(bytes.size() - 1 - script);
    }
};

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    Mutation mutation{Bytes(data, data + size), maxSize, std::minstd_rand(seed)};
    mutation.Apply();
    std::copy(mutation.bytes.begin(), mutation.bytes.end(), data);
    return mutation.bytes.size();
}
