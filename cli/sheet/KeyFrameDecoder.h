// Decodes single key frames and scales them.
#pragma once

#include <KivMp4.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kivmp4::cli {

/// Pixels as cairo takes them: 32 bits each, blue in the lowest byte of a native word, rows one after the other.
struct Picture {
    int width = 0, height = 0;
    std::vector<uint32_t> pixels = {};
};

/// For one video track. Key frames may come in any order; nothing is kept from one to the next.
class KeyFrameDecoder {
public:
    /// Throws a Failure when there is no decoder for the track.
    /// @param preamble  what the decoder needs before any unit
    KeyFrameDecoder(const CodecInfo& info, const std::string& preamble);
    ~KeyFrameDecoder();
    KeyFrameDecoder(const KeyFrameDecoder&) = delete;
    KeyFrameDecoder& operator=(const KeyFrameDecoder&) = delete;

    /// @param unit    a key frame
    /// @param width   of the picture to make; its height follows from the shape that the picture is shown in
    /// @param aspect  width of a pixel over its height, where the stream itself does not tell
    /// @return nothing when the unit cannot be decoded
    std::optional<Picture> Decode(const AccessUnit& unit, int width, double aspect);

private:
    struct State;
    std::unique_ptr<State> state;
};

}  // namespace kivmp4::cli
