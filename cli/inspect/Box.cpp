// The tree of boxes of a file: where each one lies, and what is wrong with its frame.
#include "inspect/Box.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace kivmp4::inspect {
namespace {

constexpr size_t kMaxBoxes = 250000;
constexpr uint32_t kMaxDepth = 16;

bool IsOneOf(std::string_view type, std::string_view list) {
    for (size_t i = 0; i + 4 <= list.size(); i += 5) {
        if (list.substr(i, 4) == type)
            return true;
    }
    return false;
}

// What holds nothing but boxes.
constexpr std::string_view kContainers =
    "moov trak mdia minf stbl edts dinf udta mvex moof traf mfra sinf schi iprp ipco wave gmhd tref ilst";
constexpr std::string_view kWithVersion =
    "mvhd tkhd mdhd hdlr elst stsd stts ctts stss stsz stz2 stsc stco co64 vmhd smhd nmhd sthd dref url  urn  mehd "
    "trex "
    "mfhd tfhd tfdt trun sidx mfro tfra iloc iinf infe pitm esds sdtp sbgp sgpd saiz saio cslg schm tenc pssh emsg "
    "iref ipma ispe pixi padb stsh subs";
constexpr std::string_view kVideoEntries =
    "avc1 avc2 avc3 avc4 hvc1 hev1 hvc2 hev2 mp4v jvt1 encv av01 vp08 vp09 s263 dvh1 dvhe dva1 dvav apch apcn apcs "
    "apco "
    "ap4h ap4x mjpa mjpb jpeg vvc1 vvi1";
constexpr std::string_view kSoundEntries =
    "mp4a enca lpcm alaw ulaw samr sawb samw ac-3 ec-3 ac-4 Opus fLaC alac sowt twos in24 in32 fl32 fl64 ipcm fpcm "
    ".mp3";

}  // namespace

std::string Box::Path() const {
    std::string text = parent && !parent->type.empty() ? parent->Path() + "/" : "";
    text += type;
    if (type == "trak" || sameType)
        text.append("[").append(std::to_string(sameType)).append("]");
    return text;
}

const Box* Box::Child(std::string_view childType) const {
    const auto found = std::find_if(children.begin(), children.end(), [&](Box* box) { return box->type == childType; });
    return found == children.end() ? nullptr : *found;
}

const Box* Box::Find(std::string_view path) const {
    const Box* box = this;
    while (box && !path.empty()) {
        const size_t end = std::min(path.find('/'), path.size());
        box = box->Child(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return box;
}

BoxTree::BoxTree(const File& from) : file(from) {
    root.size = root.claimedSize = file.Size();
    root.headerSize = 0;
    ReadChildren(root, 0);
    // Boxes join the list before their children, so this reaches all of them.
    for (size_t i = 0; i < boxes.size(); i++) {
        const uint64_t start = ChildrenStart(boxes[i]);
        if (start && boxes[i].depth >= kMaxDepth)
            limited = true;
        else if (start)
            ReadChildren(boxes[i], start);
    }
}

void BoxTree::ReadChildren(Box& parent, uint64_t start) {
    std::map<std::string, uint32_t> ofType;
    for (uint64_t offset = start; offset < parent.End();) {
        if (boxes.size() >= kMaxBoxes) {
            limited = true;
            return;
        }
        Box* box = ReadBox(parent, offset);
        if (!box)
            return;
        box->sameType = ofType[box->type]++;
        parent.children.push_back(box);
        offset = box->End();
    }
}

Box* BoxTree::ReadBox(Box& parent, uint64_t offset) {
    const uint64_t room = parent.End() - offset;
    uint8_t header[16] = {};
    const size_t got = file.Read(offset, header, static_cast<size_t>(std::min<uint64_t>(room, sizeof header)));
    uint64_t size = ReadNumber(header, 4);
    if (got < 8) {
        // QuickTime ends user data with four zero bytes.
        if (got != 4 || size)
            parent.problem = std::to_string(room) + " bytes at its end are too few for a box";
        return nullptr;
    }
    uint32_t headerSize = 8;
    if (size == 1 && got == 16) {
        size = ReadNumber(header + 8, 8);
        headerSize = 16;
    } else if (size == 0) {
        size = room;  // up to the end
    }
    if (size < headerSize) {
        parent.problem = "a box at " + std::to_string(offset) + " says that it is smaller than its own header";
        return nullptr;
    }
    Box& box = boxes.emplace_back();
    box.type.assign(reinterpret_cast<const char*>(header) + 4, 4);
    box.offset = offset;
    box.claimedSize = size;
    box.size = std::min(size, room);
    box.headerSize = headerSize;
    box.parent = &parent;
    box.depth = parent.type.empty() ? 0 : parent.depth + 1;
    if (box.Truncated())
        box.problem = "runs " + std::to_string(size - room) + " bytes past its parent's end";
    ReadVersion(box);
    return &box;
}

void BoxTree::ReadVersion(Box& box) {
    uint8_t bytes[8] = {};
    if (box.ContentSize() < 4 || file.Read(box.Content(), bytes, 8) < 4)
        return;
    // QuickTime's "meta" has neither version nor flags: its first child starts where they would be.
    const bool meta = box.type == "meta" && ReadNumber(bytes + 4, 4) != 0x68646C72;  // "hdlr"
    if (!meta && !IsOneOf(box.type, kWithVersion))
        return;
    box.hasVersion = true;
    box.version = bytes[0];
    box.flags = static_cast<uint32_t>(ReadNumber(bytes + 1, 3));
}

// Where the children of a box start; 0 when it has none.
uint64_t BoxTree::ChildrenStart(const Box& box) const {
    uint64_t skip = box.ContentSize() + 1;
    if (IsOneOf(box.type, kContainers) || box.type == "meta")
        skip = 0;
    else if (box.type == "stsd" || box.type == "dref")
        skip = 4;
    else if (box.type == "iinf")
        skip = box.version == 0 ? 2 : 4;
    else if (box.parent->type == "stsd" && IsOneOf(box.type, kVideoEntries))
        skip = 78;
    else if (box.parent->type == "stsd" && IsOneOf(box.type, kSoundEntries)) {
        uint8_t version[2] = {};
        file.Read(box.Content() + 8, version, 2);
        skip = version[1] == 1 ? 44 : version[1] == 2 ? 64 : 28;
    }
    return skip <= box.ContentSize() ? box.Content() + skip : 0;
}

std::string TypeText(const std::string& type) {
    std::string text;
    for (const char c : type) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = byte >= 0x20 && byte <= 0x7E && c != '\\';
        text += plain ? std::string(1, c) : fmt::format("\\x{:02x}", byte);
    }
    return text;
}

}  // namespace kivmp4::inspect
