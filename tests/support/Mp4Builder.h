// Builds MP4 files and single boxes in memory: every box of a track can be replaced, forged or left out.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kivmp4::test {

using Bytes = std::vector<uint8_t>;
using Numbers = std::vector<uint32_t>;

/// Big-endian bytes written one field after the other: `Put().U32(1).Text("moov").Zero(8)`.
class Put {
public:
    Put& U8(uint64_t value) { return Number(value, 1); }
    Put& U16(uint64_t value) { return Number(value, 2); }
    Put& U24(uint64_t value) { return Number(value, 3); }
    Put& U32(uint64_t value) { return Number(value, 4); }
    Put& U64(uint64_t value) { return Number(value, 8); }
    Put& Number(uint64_t value, int bytes);
    template <class List> Put& Each(const List& values, int bytes) {
        for (auto value : values)
            Number(value, bytes);
        return *this;
    }
    Put& Zero(size_t count) { return Raw(Bytes(count)); }
    Put& Text(std::string_view text) { return Raw(Bytes(text.begin(), text.end())); }
    Put& Raw(const Bytes& bytes) { return Each(bytes, 1); }
    operator const Bytes&() const { return out; }

private:
    Bytes out;
};

/// A byte string from hexadecimal digits; blanks are skipped.
Bytes Hex(std::string_view digits);
Bytes Join(const std::vector<Bytes>& parts);

Bytes Box(std::string_view type, const Bytes& content);
/// The same with its size in 64 bits behind a size field of 1.
Bytes Box64(std::string_view type, const Bytes& content);
Bytes FullBox(std::string_view type, const Bytes& content, uint8_t version = 0, uint32_t flags = 0);
/// A box of 32-bit words behind version and flags: tables and headers, honest and forged.
Bytes Words(std::string_view type, const Numbers& words, uint8_t version = 0);

/// An AVCDecoderConfigurationRecord.
Bytes AvcC(int lengthSize, const std::vector<Bytes>& spsList, const std::vector<Bytes>& ppsList);
/// A NAL unit of `size` bytes that differ by `seed`; the first one is a slice header byte.
Bytes Nal(size_t size, uint32_t seed = 1);
/// A sample: each NAL unit behind its length.
Bytes Prefixed(int lengthSize, const std::vector<Bytes>& nals);
/// What delivery makes of it: each NAL unit behind 00 00 00 01.
Bytes Started(const std::vector<Bytes>& nals);

/// An MPEG-4 descriptor of less than 16 KiB.
Bytes Descriptor(uint8_t tag, const Bytes& body);
/// "esds" around a DecoderSpecificInfo. `esFlags` (0x80, 0x40, 0x20) add the fields that they announce.
Bytes Esds(const Bytes& config, uint8_t esFlags = 0, uint8_t firstTag = 3);
Bytes VideoEntry(std::string_view type, const Bytes& children, uint16_t width = 176, uint16_t height = 144);
/// Sound entry of version 0, 1 or 2.
Bytes AudioEntry(std::string_view type, const Bytes& children, uint16_t version = 0);
Bytes Stsd(const std::vector<Bytes>& entries, uint8_t version = 0);

using Replace = std::map<std::string, Bytes>;  // whole boxes by type; empty bytes leave the box out

struct Track {
    Bytes entry = {};                 // sample entry box
    std::vector<Bytes> samples = {};  // as they lie in the file
    uint32_t timescale = 90000, delta = 3000, samplesPerChunk = 1;
    Replace replace = {};  // also adds "ctts", "stss" and "edts"
};
/// H.264 at 90 kHz, 3000 ticks a sample, one NAL unit a sample.
Track VideoTrack(uint32_t count = 3);
/// AAC at 48 kHz, 1024 a sample.
Track AudioTrack(uint32_t count = 4);

/// One second, counted in thousandths.
struct Movie {
    std::vector<Track> tracks = {};
    std::vector<size_t> order = {};  // track of each chunk in file order; then the others' chunks in turn
    bool moovLast = false, wide = false;  // wide: chunk offsets of 64 bits
    Bytes (*mdatBox)(std::string_view type, const Bytes& content) = Box;
    Replace replace = {};
    Bytes front = {}, back = {};  // boxes before and behind all others
};

struct Mp4Builder {
    static Bytes Build(const Movie& movie);
};

/// A media time in 90 kHz ticks as players get it: a single-precision product, fraction cut off.
inline int64_t Ticks(int64_t value, uint32_t timescale) {
    const float scale = 90000.0f / static_cast<float>(timescale);
    return static_cast<int64_t>(static_cast<float>(static_cast<double>(value)) * scale);
}

}  // namespace kivmp4::test
