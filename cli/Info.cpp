// kivmp4 info: what the file holds, and all that a decoder is told of each track.
#include <cinttypes>
#include <cstring>

#include "Commands.h"
#include "Diagnosis.h"
#include "Text.h"

namespace kivmp4::cli {

namespace {

constexpr uint32_t k3DLevels = 100;

const char* CodecName(const CodecInfo& info) {
    if (info.kind == KIVMP4_KIND_VIDEO)
        return info.subtype == KIVMP4_VIDEO_MPEG4  ? "MPEG-4 visual"
               : info.subtype == KIVMP4_VIDEO_H264 ? "H.264"
                                                   : "unknown";
    return info.subtype == KIVMP4_AUDIO_AAC ? "AAC" : "waveform format";
}

const char* H264ProfileName(uint32_t profile) {
    switch (profile) {
        case 66: return "Baseline";
        case 77: return "Main";
        case 88: return "Extended";
        case 100: return "High";
        case 110: return "High 10";
        case 122: return "High 4:2:2";
        case 244: return "High 4:4:4 Predictive";
        default: return "other";
    }
}

void PrintNumber(Output& out, const char* name, uint64_t value, const char* unit) {
    out.Print("  %-18s%" PRIu64 "%s\n", name, value, unit);
}

void PrintH264(Output& out, const CodecInfo& info, uint32_t level) {
    if (info.profile == 0 && level == 0) {
        out.Print("  %-18snot told: the parameter sets cannot be read\n", "profile, level");
        return;
    }
    out.Print("  %-18s%" PRIu32 " (%s)\n", "profile", info.profile, H264ProfileName(info.profile));
    out.Print("  %-18s%" PRIu32 ".%" PRIu32 "\n", "level", level / 10, level % 10);
    PrintNumber(out, "reference frames", info.refFrames, "");
    PrintNumber(out, "frames to buffer", info.decFrameBuffering, "");
    if (info.aspectRatio != 0)
        out.Print("  %-18s%" PRId64 " (whole part)\n", "sample aspect", info.aspectRatio);
}

void PrintVideo(Output& out, const CodecInfo& info, bool is3D) {
    out.Print("  %-18s%" PRIu32 " x %" PRIu32 "%s\n", "picture", info.width, info.height, is3D ? ", 3D" : "");
    // A name that marks a 3D file raises every video track's level.
    const uint32_t level = is3D && info.level >= k3DLevels ? info.level - k3DLevels : info.level;
    if (info.subtype == KIVMP4_VIDEO_H264)
        PrintH264(out, info, level);
    if (info.meanSampleDuration > 0)
        out.Print("  %-18s%.2f a second on average\n", "frames",
                  10000.0 / static_cast<double>(info.meanSampleDuration));
}

// AAC tells a layout by number: the highest stands for eight channels, 0 for one that the stream itself describes.
void PrintChannels(Output& out, const CodecInfo& info) {
    if (info.subtype == KIVMP4_AUDIO_AAC && info.channels == 0)
        out.Print("  %-18stold in the stream\n", "channels");
    else
        PrintNumber(out, "channels", info.subtype == KIVMP4_AUDIO_AAC && info.channels == 7 ? 8 : info.channels, "");
}

void PrintAudio(Output& out, const CodecInfo& info) {
    if (info.sampleRate != 0)
        PrintNumber(out, "rate", info.sampleRate, " samples a second");
    else
        out.Print("  %-18snot told\n", "rate");
    PrintChannels(out, info);
    PrintNumber(out, "sample size", info.bitsPerSample, " bits");
    if (info.subtype != KIVMP4_AUDIO_AAC)
        return;
    PrintNumber(out, "average bit rate", info.avgBitrate, " bits a second");
    PrintNumber(out, "greatest bit rate", info.maxBitrate, " bits a second");
    PrintNumber(out, "decoder buffer", info.bufferSize, " bytes");
}

void PrintLanguage(Output& out, const CodecInfo& info) {
    const std::string language(info.language, strnlen(info.language, sizeof info.language));
    const bool letters = language.find_first_not_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos;
    if (letters && !language.empty())
        out.Print("  %-18s%s\n", "language", language.c_str());
    else
        out.Print("  %-18snot told (%s)\n", "language", Escape(language).c_str());
}

void PrintTrack(Output& out, uint32_t index, const CodecInfo& info, bool is3D) {
    out.Print("\ntrack %" PRIu32 ": %s, %s\n", index, info.kind == KIVMP4_KIND_VIDEO ? "video" : "audio",
              CodecName(info));
    if (info.kind == KIVMP4_KIND_VIDEO)
        PrintVideo(out, info, is3D);
    else
        PrintAudio(out, info);
    PrintLanguage(out, info);
    if (info.configSize > 0)
        out.Print("  %-18s%s\n", "configuration", Hex(info.config, info.configSize).c_str());
    else
        out.Print("  %-18snone, or 256 bytes and more\n", "configuration");
}

}  // namespace

void Info(Player& player, const Options&, Output& out) {
    const std::string duration = player.Duration() > 0 ? FormatTime(player.Duration()) : "not told";
    out.Print("%s\n",
              player
                  .About(std::to_string(player.TrackCount()) + (player.TrackCount() == 1 ? " track" : " tracks") +
                         ", duration " + duration + (player.Is3D() ? ", marked as 3D by its name" : ""))
                  .c_str());
    for (uint32_t index = 0; index < player.TrackCount(); index++) {
        if (const CodecInfo* info = player.Track(index))
            PrintTrack(out, index, *info, player.Is3D());
        else
            out.Print("\ntrack %" PRIu32 ": of a kind that cannot be described, nor delivered\n", index);
    }
    const auto losses = Diagnosis(player.Path()).Losses();
    if (!losses.empty())
        out.Print("\nnot played as the file says:\n");
    for (const std::string& loss : losses)
        out.Print("  %s\n", loss.c_str());
}

}  // namespace kivmp4::cli
