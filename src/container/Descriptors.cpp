// Descriptor headers.
#include "container/Descriptors.h"

#include <algorithm>

namespace kivmp4 {

bool ReadDescriptor(ByteView bytes, Descriptor& out) {
    out = {};
    if (!bytes.Has(0, 1))
        return false;
    size_t header = 1;
    uint64_t size = 0;
    bool more = true;
    while (more && bytes.Has(header, 1)) {
        const uint8_t group = bytes.U8(header++);
        // Any number of size bytes may follow; what no payload can hold need not be told apart.
        size = std::min<uint64_t>(size << 7 | (group & 0x7Fu), UINT32_MAX);
        more = (group & 0x80) != 0;
    }
    if (size > bytes.size - header)
        return false;
    out.tag = bytes.U8(0);
    out.body = {bytes.data + header, static_cast<size_t>(size)};
    return true;
}

size_t EsDescriptorPrefix(ByteView body) {
    const uint8_t flags = body.U8(2);
    size_t prefix = 3;  // ES_ID and flags
    if (flags & 0x80)   // streamDependenceFlag
        prefix = 5;
    if (flags & 0x40)  // URL_Flag
        prefix += size_t{1} + body.U8(prefix);
    if (flags & 0x20)  // OCRstreamFlag
        prefix += 2;
    return prefix;
}

}  // namespace kivmp4
