// A track's coded stream: what the sample description says of it, and the unit handler that was selected for it.
#pragma once

#include <cstdint>

#include "KivMp4.h"
#include "codec/H264Sps.h"
#include "codec/UnitHandler.h"
#include "support/ByteOrder.h"

namespace kivmp4 {

class Mp4Box;

enum class CodecType : uint32_t {
    Unknown = 0,
    Mpeg4Visual = 1,
    H264 = 2,
    OtherVideo = 3,  // no sample entry gives it
    UncompressedVideo = 4,
    Aac = 5,
    OtherAudio = 6,  // configured by a waveform-format header
    Text = 7         // no sample entry gives it
};

/// Filled while the movie is opened and only read afterwards, except for the selection. Not for two threads at once.
class ElementaryStream {
public:
    explicit ElementaryStream(int32_t level) : logLevel(level) {}
    ~ElementaryStream();

    /// Reads a sample entry (ISO/IEC 14496-12, 8.5.2), its configuration and, for H.264, its parameter set.
    /// @param index               0: a track has one entry
    /// @param meanSampleDuration  kept for GetCodecInfo, in units of 100 microseconds
    /// @return false for an entry that cannot be played; nothing of the entry stays loaded
    [[nodiscard]] bool ParseSampleEntry(uint32_t index, int64_t meanSampleDuration, Mp4Box& entry);

    /// Reads an "esds" box (ISO/IEC 14496-1, 7.2.6). @return whether both descriptors were found and copied
    [[nodiscard]] bool ParseEsds(Mp4Box& esds);

    bool IsVideo() const { return codecType >= CodecType::Mpeg4Visual && codecType <= CodecType::UncompressedVideo; }
    bool IsAudio() const { return codecType == CodecType::Aac || codecType == CodecType::OtherAudio; }
    bool IsText() const { return codecType == CodecType::Text; }

    /// Fills the fields that apply to the stream's kind; the record should be zero-filled.
    /// @param index  of the configuration: only 0 exists
    /// @return false when the stream cannot describe itself; kind and subtype may be written even so
    [[nodiscard]] bool GetCodecInfo(CodecInfo* record, uint32_t index) const;

    /// Creates the handler for a configuration that GetCodecInfo gave, unless it is the one selected already.
    /// @return false when the stream has no such configuration: there is no handler then. True also when the handler's
    ///         allocation failed, and when a selection that failed before is asked for again
    [[nodiscard]] bool SelectUnitHandler(const CodecInfo* requested);

    /// @return null when none is selected
    UnitHandler* GetUnitHandler() const { return unitHandler; }

private:
    bool ReadEntryFields(Mp4Box& entry, ByteView content, uint32_t& childrenOffset);
    bool ReadEntryChildren(Mp4Box& entry, bool isAvc);
    bool ReadConfigurationChild(Mp4Box& child, ByteView content, bool isAvc, bool& stop);
    bool StoreConfig(ByteView bytes) { return Store(codecConfig, codecConfigSize, bytes); }
    static bool Store(uint8_t*& copy, int32_t& copySize, ByteView bytes);
    ByteView Config() const { return {codecConfig, static_cast<size_t>(codecConfigSize)}; }
    void CopyConfig(CodecInfo& record) const;
    void FillVideo(CodecInfo& record, uint32_t subtype) const;
    bool GetType_AAC(CodecInfo& record) const;
    bool GetWaveformInfo(CodecInfo& record) const;

    CodecType codecType = CodecType::Unknown;
    uint8_t* codecConfig = nullptr;  // owned; the "avcC" content, or the DecoderSpecificInfo
    int32_t codecConfigSize = 0;
    uint8_t* decoderConfig = nullptr;  // owned; the DecoderConfigDescriptor's body
    int32_t decoderConfigSize = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    int64_t meanSampleDuration = 0;  // movie duration over number of samples, units of 100 microseconds
    uint32_t rawFourcc = 0;          // uncompressed video: the entry's type and depth
    uint32_t rawDepth = 0;
    CodecInfo selectedInfo = {};         // the record last asked for, whatever came of it
    UnitHandler* unitHandler = nullptr;  // owned
    H264SpsInfo sps = {};
    int32_t logLevel;
};

}  // namespace kivmp4
