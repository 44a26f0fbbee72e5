// Mutations that know boxes: hostile numbers in their fields; whole boxes copied, dropped, grown, with the sizes around
// them put right or left wrong.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

using Bytes = std::vector<uint8_t>;

struct Box {
    size_t begin, end;
};

constexpr uint64_t kHostile[] = {0, 1, 2, 7, 8, 9, 15, 16, 0x7F, 0x80, 0xFF, 0x7FFF, 0x8000, 0xFFFF, 0x7FFFFFFF,
                                 0x80000000, 0xFFFFFFFF, 0xFFFFFFF8, 0x3FFFFFFF, 0x40000001, 0x20000000,
                                 0x7FFFFFFFFFFFFFFF, 0x8000000000000000, 0xFFFFFFFFFFFFFFF0};

uint64_t Load(const uint8_t* at, size_t width) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i)
        value = value << 8 | at[i];
    return value;
}

void Store(uint8_t* at, size_t width, uint64_t value) {
    for (size_t i = width; i-- > 0; value >>= 8)
        at[i] = static_cast<uint8_t>(value);
}

class Mutation {
public:
    Mutation(const uint8_t* data, size_t size, size_t most, unsigned seed)
        : bytes(data, data + size), maxSize(most), random(seed), script(size ? std::min<size_t>(data[size - 1], size - 1) : 0) {
        List(0, size - std::min(size, script + 1), 0);
    }

    Bytes Apply() {
        const uint32_t kind = Below(16);
        if (boxes.empty() || kind < 4)
            Havoc(0, bytes.size());
        else if (kind < 9)
            SetNumber();
        else if (kind < 11)
            Havoc(Pick().begin + 8, boxes[picked].end);
        else if (kind < 12)
            Copy();
        else if (kind < 13)
            Replace(Pick().begin, boxes[picked].end, {});
        else
            ChangeScript();
        return bytes;
    }

private:
    uint32_t Below(size_t limit) { return static_cast<uint32_t>(random() % std::max<size_t>(limit, 1)); }
    const Box& Pick() { return boxes[picked = Below(boxes.size())]; }

    // A size that fits and four letters make a box; what stands before the first one is the enclosing box's own.
    bool IsBox(size_t at, size_t end) const {
        if (end - at < 8 || Load(&bytes[at], 4) < 8 || Load(&bytes[at], 4) > end - at)
            return false;
        return std::all_of(&bytes[at + 4], &bytes[at + 4] + 4, [](uint8_t c) { return c >= ' ' && c < 0x7F; });
    }
    void List(size_t at, size_t end, int depth) {
        for (size_t skip = 0; depth > 0 && skip < 100 && at + skip < end; ++skip)
            if (IsBox(at + skip, end)) {
                at += skip;
                break;
            }
        for (; at < end && IsBox(at, end); at += Load(&bytes[at], 4)) {
            boxes.push_back({at, at + Load(&bytes[at], 4)});
            if (depth < 10)
                List(at + 8, boxes.back().end, depth + 1);
        }
    }

    // Sizes around the place follow, mostly.
    void Replace(size_t begin, size_t end, const Bytes& by) {
        if (bytes.size() - (end - begin) + by.size() > maxSize)
            return;
        for (const Box& box : boxes)
            if (box.begin < begin && begin < box.end && end <= box.end && Below(16))
                Store(&bytes[box.begin], 4, box.end - box.begin - (end - begin) + by.size());
        bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.begin() + static_cast<std::ptrdiff_t>(end));
        bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(begin), by.begin(), by.end());
    }

    void Havoc(size_t begin, size_t end) {
        Bytes part(bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.begin() + static_cast<std::ptrdiff_t>(end));
        part.resize(end - begin + std::min<size_t>(maxSize - bytes.size(), 1 + end - begin));
        part.resize(LLVMFuzzerMutate(part.data(), end - begin, part.size()));
        Replace(begin, end, part);
    }

    void Copy() {
        const Bytes copy(bytes.begin() + static_cast<std::ptrdiff_t>(Pick().begin),
                         bytes.begin() + static_cast<std::ptrdiff_t>(boxes[picked].end));
        const size_t to = Below(2) ? boxes[picked].begin : Pick().begin;
        Replace(to, to, copy);
    }

    // Fields mostly stand on multiples of four from the box's beginning, the telling ones early.
    void SetNumber() {
        const Box& box = Pick();
        const size_t width = size_t{1} << std::min(Below(6), 2 + Below(2));
        const size_t size = box.end - box.begin, reach = Below(4) ? std::min<size_t>(size, 40) : size;
        const size_t at = box.begin + Below(reach) / width * width;
        if (at + width > box.end)
            return;
        const uint64_t now = Load(&bytes[at], width);
        const uint64_t choices[] = {now + 1, now - 1, now * 2, now ^ uint64_t{1} << Below(8 * width)};
        Store(&bytes[at], width, Below(4) ? kHostile[Below(std::size(kHostile))] : choices[Below(std::size(choices))]);
    }

    void ChangeScript() {
        const size_t first = bytes.size() - 1 - script;
        if (script < 200 && Below(2) && bytes.size() < maxSize) {
            bytes.insert(bytes.end() - 1 - static_cast<std::ptrdiff_t>(Below(script + 1)), static_cast<uint8_t>(random()));
            ++bytes.back();
        } else if (script > 0) {
            bytes[first + Below(script)] = static_cast<uint8_t>(Below(2) ? random() : Below(16));
        }
    }

    Bytes bytes;
    const size_t maxSize;
    std::minstd_rand random;
    const size_t script;
    std::vector<Box> boxes;
    size_t picked = 0;
};

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed) {
    const Bytes changed = Mutation(data, size, maxSize, seed).Apply();
    std::copy(changed.begin(), changed.end(), data);
    return changed.size();
}
