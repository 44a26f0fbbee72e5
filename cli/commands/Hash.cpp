// kivmp4 hash: a checksum of each track's bytes as they are delivered.
#include <map>

#include "commands/Checksum.h"
#include "commands/Commands.h"
#include "play/Player.h"
#include "print/Json.h"
#include "print/Progress.h"

namespace kivmp4::cli {

namespace {

struct TrackSum {
    explicit TrackSum(const std::string& algorithm) : sum(algorithm) {}
    Checksum sum;
    uint64_t units = 0, bytes = 0;
    bool video = false;
};

}  // namespace

ExitCode Hash(const Settings& settings, const HashArguments& arguments, Output& out) {
    Checksum each(arguments.algorithm);  // an unknown algorithm is refused before any file is opened
    return EachFile(settings, arguments.files, out, [&](const std::string& path) {
        const Source source(path);
        Player player(source, settings);
        std::map<uint32_t, TrackSum> tracks;
        for (const uint32_t track : player.Enable())
            tracks.try_emplace(track, arguments.algorithm);
        AccessUnit unit;
        KivMp4InitUnit(player.Handle(), &unit);
        Json units = Json::array();
        Progress progress(settings, "hash", source.File().Size());
        while (player.Next(unit)) {
            const auto size = static_cast<size_t>(unit.size);
            TrackSum& track = tracks.at(unit.trackIndex);
            track.sum.Add(unit.payload, size);
            track.video = unit.isVideo;
            track.bytes += size;
            progress.Add(size);
            if (arguments.perUnit) {
                each.Add(unit.payload, size);
                const std::string sum = each.Take();
                if (settings.json)
                    units.push_back({{"track", unit.trackIndex}, {"sample", track.units}, {"hash", sum}});
                else
                    out.Print("{} {} {}\n", unit.trackIndex, track.units, sum);
            }
            track.units++;
        }
        player.RequireUnits();
        progress.Erase();
        Json document = {{"schema", "kivmp4.hash/1"}};
        AddFile(document, source.Path());
        document["algorithm"] = arguments.algorithm;
        document["tracks"] = Json::array();
        for (auto& [index, track] : tracks) {
            const std::string sum = track.sum.Take();
            if (settings.json)
                document["tracks"].push_back(
                    {{"index", index}, {"units", track.units}, {"bytes", track.bytes}, {"hash", sum}});
            else
                out.Print("{}  #{} {}  {} units  {} bytes  {}\n", source.Name(), index, track.video ? "video" : "audio",
                          track.units, track.bytes, sum);
        }
        if (arguments.perUnit)
            document["units"] = units;
        if (settings.json)
            out.Write(Dump(document));
        return kDone;
    });
}

}  // namespace kivmp4::cli
