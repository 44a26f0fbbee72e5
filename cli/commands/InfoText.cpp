// kivmp4 info for people.
#include "commands/Info.h"
#include "print/Text.h"

namespace kivmp4::cli {

namespace {

std::string LevelText(uint32_t level) { return fmt::format("{}.{}", level / 10, level % 10); }

std::string RotationText(const inspect::Track& track) {
    std::string text = track.mirrored ? "mirrored" : "";
    if (track.rotation > 0)
        text += fmt::format("{}to be turned by {}°", text.empty() ? "" : ", ", track.rotation);
    return text;
}

void PrintVideo(const TrackView& view, bool is3D, std::vector<std::string>& first, std::vector<std::string>& second) {
    const CodecInfo& info = *view.info;
    const std::string profile = ProfileName(view);
    std::string codec = CodecName(view);
    if (!profile.empty())
        codec += " " + profile + "@" + LevelText(Level(info, is3D));
    first.push_back(codec);
    first.push_back(fmt::format("{}x{}{}", info.width, info.height, is3D ? " 3D" : ""));
    if (view.FrameRate() > 0)
        first.push_back(fmt::format("{:.3f} fps", view.FrameRate()));
    if (view.IsH264() && profile.empty())
        second.push_back("its parameter sets cannot be read");
    else if (view.IsH264()) {
        second.push_back(fmt::format("refs {}", info.refFrames));
        second.push_back(fmt::format("buffering {}", info.decFrameBuffering));
        if (Level(info, is3D) != LevelInFile(info))
            second.push_back("level in the file " + LevelText(LevelInFile(info)) + ", raised for its references");
    }
}

void PrintAudio(const TrackView& view, std::vector<std::string>& first, std::vector<std::string>& second) {
    const std::string profile = ProfileName(view);
    first.push_back(CodecName(view) + (profile.empty() ? "" : " " + profile));
    first.push_back(view.info->sampleRate ? fmt::format("{} Hz", view.info->sampleRate) : "rate not told");
    first.push_back(view.IsAac() && view.info->channels == 0 ? "channels told in the stream"
                                                             : Count(Channels(view), "channel"));
    second.push_back(fmt::format("{} bits a sample", view.info->bitsPerSample));
    if (view.info->maxBitrate)
        second.push_back("at most " + FormatRate(view.info->maxBitrate));
}

void PrintPlace(const TrackView& view, std::vector<std::string>& second) {
    const inspect::Track& track = *view.track;
    if (const inspect::SampleEntry* entry = track.Entry()) {
        second.insert(second.begin(), inspect::TypeText(entry->type));
        if (entry->nalLengthSize)
            second.insert(second.begin() + 1, fmt::format("NAL length {}, {} SPS {} PPS", entry->nalLengthSize,
                                                          entry->sps.size(), entry->pps.size()));
    }
    if (const std::string rotation = RotationText(track); !rotation.empty())
        second.push_back(rotation);
    if (view.start)
        second.push_back("starts at " + FormatTime(view.start));
    second.push_back(fmt::format("trak[{}], ID {}", track.trakIndex, track.id));
}

std::string Joined(const std::vector<std::string>& parts, const char* between) {
    return fmt::format("{}", fmt::join(parts, between));
}

void PrintTrack(const TrackView& view, const FileView& file, bool config, Output& out) {
    std::vector<std::string> first, second;
    if (!view.info)
        first.push_back("listed, but cannot be delivered");
    else if (view.IsVideo())
        PrintVideo(view, file.player.Is3D(), first, second);
    else
        PrintAudio(view, first, second);
    if (view.track && view.info) {
        first.push_back(Count(view.facts.units, "unit"));
        if (view.IsVideo() && view.track->stss.count)
            first.push_back(
                Count(view.facts.keys, "key frame") + " (max gap " +
                fmt::format("{:.3f} s)", static_cast<double>(view.facts.longestInterval) / kTicksPerSecond));
        else if (view.IsVideo())
            first.push_back("all key frames");
        if (view.BitRate() > 0)
            first.push_back(FormatRate(view.BitRate()));
    }
    if (view.track)
        PrintPlace(view, second);
    if (view.info)
        first.push_back(Language(*view.info));
    const char* kind = !view.info ? "other" : view.IsVideo() ? "video" : "audio";
    out.Print("  {} {}  {}\n", out.Painted(Paint::Bold, fmt::format("#{}", view.index)), kind, Joined(first, "   "));
    if (!second.empty())
        out.Print("            {}\n", Joined(second, ", "));
    if (config && view.info)
        out.Print("            config {}\n", view.info->configSize ? Hex(view.info->config, view.info->configSize)
                                                                   : "none, or 256 bytes and more");
}

}  // namespace

void PrintInfo(const FileView& file, const InfoArguments& arguments, Output& out) {
    const inspect::Movie& movie = file.source.Movie();
    const int64_t duration = file.player.Duration();
    std::vector<std::string> parts = {FormatBytes(file.source.File().Size()),
                                      duration > 0 ? FormatTime(duration) : "duration not told"};
    if (file.BitRate() > 0)
        parts.push_back(FormatRate(file.BitRate()));
    parts.push_back(movie.MoovFirst() ? "moov first (fast start)" : "moov last");
    if (const std::string brand = inspect::TypeText(movie.majorBrand); !brand.empty())
        parts.push_back(brand.substr(0, brand.find_last_not_of(' ') + 1));
    if (file.player.Is3D())
        parts.push_back("3D by its name");
    out.Print("{}  {}\n", out.Painted(Paint::Bold, fmt::format("{:<42}", file.source.Name())), Joined(parts, "   "));
    if (duration > 0 && file.DurationsDiffer())
        out.Print("  the samples last {}\n", FormatTime(file.tablesDuration));
    for (const TrackView& view : file.tracks) {
        if (!arguments.track || *arguments.track == view.index)
            PrintTrack(view, file, arguments.config, out);
    }
    if (file.tracks.size() > 1)
        out.Print("  interleaving: largest distance {} at {} (read-ahead window 192 KiB)  {}\n",
                  FormatBytes(file.distance.bytes), FormatTime(inspect::ToTicks(file.distance.time)),
                  file.distance.bytes <= inspect::kReadAhead ? "ok" : out.Painted(Paint::Yellow, "too wide"));
    for (const check::Finding& loss : file.losses)
        out.Print("  {}: {}\n",
                  out.Painted(loss.rule->severity == check::Severity::Error ? Paint::Red : Paint::Yellow,
                              Name(loss.rule->severity)),
                  check::WithPlace(loss));
}

}  // namespace kivmp4::cli
