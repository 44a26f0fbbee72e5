// kivmp4 extract: writes each track's units to a file of its own, in a form that other programs read.
#include <unistd.h>

#include <cinttypes>
#include <filesystem>
#include <map>

#include "Adts.h"
#include "Commands.h"
#include "Failure.h"
#include "Text.h"

namespace kivmp4::cli {

namespace {

const char* Suffix(const CodecInfo& info) {
    if (info.kind == KIVMP4_KIND_VIDEO)
        return info.subtype == KIVMP4_VIDEO_H264 ? ".h264" : ".m4v";
    return info.subtype == KIVMP4_AUDIO_AAC ? ".aac" : ".raw";
}

// One track's file and what was written to it.
struct TrackFile {
    TrackFile(const std::string& path, std::optional<AdtsFormat> format)
        : name(Escape(path)), adts(format), file(path) {}

    std::string name;
    std::optional<AdtsFormat> adts;
    Output file;
    uint64_t units = 0;
    uint64_t bytes = 0;
};

using TrackFiles = std::map<uint32_t, TrackFile>;

// The share done on standard error, when a person looks at it.
class Progress {
public:
    explicit Progress(int64_t whole) : duration(isatty(STDERR_FILENO) ? whole : 0) {}
    ~Progress() {
        if (shown >= 0)
            std::fputs("\r    \r", stderr);
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Show(int64_t ticks) {
        if (duration <= 0 || ticks < 0)
            return;
        const double share = 100 * static_cast<double>(ticks) / static_cast<double>(duration);
        const int percent = share < 100 ? static_cast<int>(share) : 100;
        if (percent <= shown)
            return;
        shown = percent;
        std::fprintf(stderr, "\r%3d%%", percent);
    }

private:
    int64_t duration;
    int shown = -1;
};

std::optional<AdtsFormat> AdtsFor(const Player& player, uint32_t track) {
    const CodecInfo& info = *player.Track(track);
    if (info.kind == KIVMP4_KIND_VIDEO || info.subtype != KIVMP4_AUDIO_AAC)
        return std::nullopt;
    std::string why;
    const auto format = AdtsFormat::FromConfig(info.config, info.configSize, why);
    if (!format)
        throw Failure{kNotUsable, player.About("track " + std::to_string(track) + " cannot become an .aac file: " +
                                               why + "; take the other tracks with --track")};
    return format;
}

TrackFiles CreateFiles(const Player& player, const std::vector<uint32_t>& tracks, const std::string& directory) {
    // All questions come before the first file.
    std::map<uint32_t, std::optional<AdtsFormat>> formats;
    for (const uint32_t track : tracks)
        formats[track] = AdtsFor(player, track);

    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error)
        throw Failure{kCannotRead,
                      Escape(directory) + ": cannot create the directory: " + error.message() + "; choose another one"};
    TrackFiles files;
    for (const uint32_t track : tracks) {
        const std::string name = "track" + std::to_string(track) + Suffix(*player.Track(track));
        const std::string path = (std::filesystem::path(directory) / name).string();
        if (player.File().Is(path))
            throw Failure{kCannotRead, Escape(path) + ": is the file to read from; choose another directory"};
        files.try_emplace(track, path, formats[track]);
    }
    return files;
}

void WriteUnit(const Player& player, TrackFile& target, const AccessUnit& unit) {
    const auto size = static_cast<size_t>(unit.size);
    if (target.adts) {
        const auto header = target.adts->Header(size);
        if (!header)
            throw Failure{kStopped, player.About("track " + std::to_string(unit.trackIndex) + ": a unit of " +
                                                 std::to_string(size) +
                                                 " bytes is too large for an .aac file"
                                                 "; take the other tracks with --track")};
        target.file.Write(header->data(), header->size());
        target.bytes += header->size();
    }
    target.file.Write(unit.payload, size);
    target.bytes += size;
    target.units++;
}

void Finish(TrackFiles& files, Output& out) {
    for (auto& [track, target] : files) {
        target.file.Finish();
        out.Print("%s: %" PRIu64 " units, %" PRIu64 " bytes\n", target.name.c_str(), target.units, target.bytes);
    }
}

}  // namespace

void Extract(Player& player, const Options& options, Output& out) {
    TrackFiles files = CreateFiles(player, player.Enable(options.track), options.directory);
    AccessUnit unit;
    KivMp4InitUnit(player.Handle(), &unit);
    try {
        Progress progress(player.Duration());
        while (player.Next(unit)) {
            WriteUnit(player, files.at(unit.trackIndex), unit);
            progress.Show(unit.dts);
        }
    } catch (const Failure& failure) {
        // What came before the damage is kept and counted.
        if (failure.exitCode == kStopped)
            Finish(files, out);
        throw;
    }
    player.RequireUnits();
    Finish(files, out);
}

}  // namespace kivmp4::cli
