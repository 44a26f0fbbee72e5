// Mutations that know boxes: hostile numbers in their fields; whole boxes copied, dropped, grown, with the sizes around
// them put right or left wrong.
#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint64_t kHostile[] = {0, 1, 2, 7, 8, 9, 15, 16, 0x80, 0xFF, 0x7FFF, 0x8000, 0xFFFF, 0x7FFFFFFF, 0x80000000,
                                 0xFFFFFFFF, 0xFFFFFFF8, 0x3FFFFFFF, 0x40000001, 0x20000000, INT64_MAX, 1ull << 63};

class Mutation {
public:
    Mutation(const uint8_t* data, size_t size, size_t most, unsigned seed)
        : bytes(data, data + size), maxSize(most), random(seed) {
        scriptSize = size ? std::min<size_t>(bytes.back(), size - 1) : 0;
        List(0, size - scriptSize - (size ? 1 : 0), 0);
    }

    const Bytes& Apply() {
        const uint32_t kind = boxes.empty() ? 0 : Below(16);
        const Box box = boxes.empty() ? Box{} : boxes[Below(boxes.size())];
        if (kind < 4)       Havoc(0, bytes.size());
        else if (kind < 9)  SetNumber(box);
        else if (kind < 11) Havoc(box.begin + 8, box.end);
        else if (kind < 12) Replace(box.begin, box.end, {});
        else if (kind < 13) Copy(box, Below(2) ? box : boxes[Below(boxes.size())]);
        else                ChangeScript();
        return bytes;
    }

private:
    struct Box {
        size_t begin, end;
    };

    uint32_t Below(size_t limit) { return static_cast<uint32_t>(random() % limit); }
    auto At(size_t offset) { return bytes.begin() + static_cast<std::ptrdiff_t>(offset); }

    uint64_t Load(size_t at, size_t width) const {
        uint64_t value = 0;
        for (size_t i = 0; i < width; ++i)
            value = value << 8 | bytes[at + i];
        return value;
    }
    void Store(size_t at, size_t width, uint64_t value) {
        for (size_t i = width; i-- > 0; value >>= 8)
            bytes[at + i] = static_cast<uint8_t>(value);
    }

    // A size that fits and four letters make a box; what stands before the first one is the enclosing box's own.
    size_t BoxSize(size_t at, size_t end) {
        const uint64_t size = end - at < 8 ? 0 : Load(at, 4);
        const bool fits = size >= 8 && size <= end - at;
        return fits && std::all_of(At(at + 4), At(at + 8), [](uint8_t c) { return c >= ' '; }) ? static_cast<size_t>(size) : 0;
    }
    void List(size_t at, size_t end, int depth) {
        for (const size_t first = at; depth > 0 && at < end && at - first < 100 && !BoxSize(at, end);)
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
    void Havoc(size_t begin, size_t end) {
        Bytes part(At(begin), At(end));
        part.resize(part.size() + std::min(maxSize - bytes.size(), part.size() + 1));
        part.resize(LLVMFuzzerMutate(part.data(), end - begin, part.size()));
        Replace(begin, end, part);
    }
    void Copy(const Box& from, const Box& before) { Replace(before.begin, before.begin, Bytes(At(from.begin), At(from.end))); }

    // Fields mostly stand on multiples of four from the box's beginning, the telling ones early.
    void SetNumber(const Box& box) {
        const size_t width = Below(6) ? 4 : size_t{1} << Below(4), size = box.end - box.begin;
        const size_t at = box.begin + Below(Below(4) ? std::min<size_t>(size, 40) : size) / width * width;
        if (at + width > box.end)
            return;
        const uint64_t now = Load(at, width), near[] = {now + 1, now - 1, now * 2, now ^ uint64_t{1} << Below(8 * width)};
        Store(at, width, Below(4) ? kHostile[Below(std::size(kHostile))] : near[Below(std::size(near))]);
    }

    void ChangeScript() {
        const size_t script = bytes.size() - 1 - scriptSize;
        if (scriptSize > 0 && (Below(2) || scriptSize > 200 || bytes.size() == maxSize)) {
            *At(script + Below(scriptSize)) = static_cast<uint8_t>(random() >> Below(8));
        } else if (bytes.size() < maxSize) {
            bytes.insert(At(script + Below(scriptSize + 1)), static_cast<uint8_t>(random()));
            ++bytes.back();
        }
    }

    Bytes bytes;
    const size_t maxSize;
    std::minstd_rand random;
    size_t scriptSize;  // the script stands at the end, behind it its size
    std::vector<Box> boxes;
};

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    Mutation mutation(data, size, maxSize, seed);
    const Bytes& changed = mutation.Apply();
    std::copy(changed.begin(), changed.end(), data);
    return changed.size();
}
