// The tree of boxes of a file: where each one lies, and what is wrong with its frame.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/File.h"

namespace kivmp4::inspect {

/// One box. It belongs to its BoxTree, and so do the boxes that it points at.
struct Box {
    std::string type;          // four bytes as in the file, which need not be printable
    uint64_t offset = 0;       // of its header
    uint64_t size = 0;         // what lies in its parent and in the file, header included
    uint64_t claimedSize = 0;  // what its header says; greater than `size` when it runs past its parent's end
    uint32_t headerSize = 8;   // size and type: 8 or 16 bytes
    bool hasVersion = false;
    uint8_t version = 0;
    uint32_t flags = 0;
    uint32_t depth = 0;     // 0 at the top level
    uint32_t sameType = 0;  // how many boxes of its type precede it in its parent
    Box* parent = nullptr;  // null at the top level
    std::vector<Box*> children = {};
    std::string problem = {};  // what is wrong with its frame or its children's, or nothing

    uint64_t End() const { return offset + size; }
    /// Where the fields start: past size and type, and past version and flags where the box has them.
    uint64_t Content() const { return offset + headerSize + (hasVersion ? 4 : 0); }
    uint64_t ContentSize() const { return End() - Content(); }
    bool Truncated() const { return claimedSize > size; }
    /// Like "moov/trak[0]/mdia"; a number stands at each trak, and at other boxes from the second of a type on.
    std::string Path() const;
    /// First child of the type, or null.
    const Box* Child(std::string_view childType) const;
    /// Follows types separated by "/". @return null as soon as one is missing
    const Box* Find(std::string_view path) const;
};

/// All boxes of a file, found without reading anything but headers.
class BoxTree {
public:
    explicit BoxTree(const File& file);
    BoxTree(const BoxTree&) = delete;
    BoxTree& operator=(const BoxTree&) = delete;

    /// A box of no type around all others.
    const Box& Root() const { return root; }
    /// Some boxes are not listed: there are more than the limit, or they nest deeper.
    bool Limited() const { return limited; }

private:
    void ReadChildren(Box& parent, uint64_t start);
    Box* ReadBox(Box& parent, uint64_t offset);
    void ReadVersion(Box& box);
    uint64_t ChildrenStart(const Box& box) const;

    const File& file;
    Box root;
    std::deque<Box> boxes;
    bool limited = false;
};

/// Four bytes of a type for messages: printable ones as they are, others as "\xNN".
std::string TypeText(const std::string& type);

}  // namespace kivmp4::inspect
