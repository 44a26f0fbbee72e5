// Looks for what is wrong with a file: a table of rules, and what they find.
#include "check/Check.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <string_view>

namespace kivmp4::check {
namespace {

constexpr char kRepack[] = "ffmpeg -i FILE -c copy repaired.mp4 writes the tables anew";
constexpr char kEncoder[] = "the program that wrote the file is at fault; write it again with another one";

}  // namespace

const std::vector<Rule>& Rules() {
    using enum Severity;
    static const std::vector<Rule> rules = {
        {"not-mp4", Error, "the file is of another kind", "make sure that this is the file you mean", FindFileFaults,
         Extent::Structure},
        {"truncated", Error, "a box claims more bytes than the file has",
         "kivmp4 extract FILE -o part saves what is readable", nullptr},
        {"box-frame", Error, "a box does not fit its parent, or is smaller than its header", kEncoder, nullptr},
        {"no-moov", Error, "there is no index",
         "the recording was cut off before its index was written; a tool that rebuilds it needs a good file of the "
         "same "
         "camera",
         nullptr},
        {"moov-last", Note, "the index follows the samples",
         "ffmpeg -i FILE -c copy -movflags faststart front.mp4 lets players start at once", nullptr},
        {"fragmented", Error, "samples lie in fragments, which are not played", "ffmpeg -i FILE -c copy flat.mp4",
         nullptr},
        {"no-track", Error, "no track can be played", "kivmp4 boxes FILE --path moov shows what is there",
         FindTrackFaults, Extent::Structure},
        {"unsupported-track", Warning, "a track's format is not supported", "ffmpeg -i FILE converted.mp4", nullptr},
        {"encrypted-track", Warning, "a track is encrypted", "a player with the key is needed", nullptr},
        {"disabled-track", Note, "a track is marked as disabled and not played",
         "if it should be played: ffmpeg -i FILE -map 0 -c copy -disposition:a default enabled.mp4 enables it",
         nullptr},
        {"parameter-sets", Error, "H.264 parameter sets are missing or cut off in avcC", kRepack, nullptr},
        {"timescale-zero", Error, "a timescale is 0", kEncoder, nullptr},
        {"edit-ignored", Note, "an edit list that is not applied moves a track or cuts it",
         "ffmpeg -i FILE plain.mp4 applies the edit list by encoding anew", nullptr},
        {"limited", Note, "the file has more than is looked at", "what lies past the limit was not checked",
         FindTableFaults},
        {"table-missing", Error, "a track lacks a table", kEncoder, nullptr},
        {"table-short", Error, "a table announces more entries than it holds", kRepack, nullptr},
        {"stts-count", Error, "times are told for more or fewer samples than there are sizes", kRepack, nullptr},
        {"ctts-count", Error, "time offsets are told for more or fewer samples than there are sizes", kRepack, nullptr},
        {"stss-entry", Error, "a key frame number is not of a sample, or not above the one before it", kRepack,
         nullptr},
        {"stsc-entry", Error, "the chunk map does not start at chunk 1, ascend, and stay within the chunks", kRepack,
         nullptr},
        {"chunk-count", Error, "the chunks hold more or fewer samples than there are sizes", kRepack, nullptr},
        {"offset-outside", Error, "samples lie outside 'mdat' or the file", kEncoder, FindPlaceFaults},
        {"overlap", Warning, "samples overlap", kRepack, nullptr},
        {"interleave-window", Note, "tracks lie further apart than the read-ahead window of 192 KiB",
         "ffmpeg -i FILE -c copy interleaved.mp4 brings them together", nullptr},
        {"interleave-told", Warning, "tracks lie further apart than the 1 MiB that players are told",
         "ffmpeg -i FILE -c copy interleaved.mp4 brings them together", nullptr},
        {"stts-zero", Warning, "samples have a duration of 0", kRepack, FindTimeFaults},
        {"duration", Warning, "a header's duration differs from that of the samples", kRepack, nullptr},
        {"one-gop", Warning, "only one key frame in more than ten seconds",
         "encode with a key frame every few seconds (ffmpeg -g)", nullptr},
        {"nal-length", Error, "a NAL unit runs past its sample", kEncoder, FindUnitFaults, Extent::Units},
        {"sync-nal", Warning, "samples marked as key frames and IDR pictures differ", kRepack, nullptr, Extent::Units},
        {"parameter-sets-inside", Note, "parameter sets stand inside samples too",
         "players that ignore them show wrong pictures if they differ from those in avcC", nullptr, Extent::Units},
    };
    return rules;
}

const char* Name(Severity severity) {
    return severity == Severity::Error ? "error" : severity == Severity::Warning ? "warning" : "note";
}

const std::vector<inspect::Sample>& Context::SamplesOf(const inspect::Track& track) {
    const auto [entry, added] = samples.try_emplace(track.trakIndex);
    if (added && track.Played())
        entry->second = inspect::ListSamples(track);
    return entry->second;
}

void Context::Add(const char* rule, uint64_t offset, const std::string& path, const std::string& message) {
    const auto& rules = Rules();
    const auto found =
        std::find_if(rules.begin(), rules.end(), [&](const Rule& r) { return !std::strcmp(r.name, rule); });
    findings.push_back({&*found, offset, path, message});
}

std::string NameOf(const inspect::Track& track) { return "trak[" + std::to_string(track.trakIndex) + "]"; }

std::string Hint(const Finding& finding, const std::string& name) {
    constexpr std::string_view kPlaceholder = "FILE";
    std::string hint = finding.rule->hint;
    if (const size_t at = hint.find(kPlaceholder); at != std::string::npos)
        hint.replace(at, kPlaceholder.size(), name);
    return hint;
}

std::string WithPlace(const Finding& finding) {
    if (finding.path.empty())
        return finding.message;
    return fmt::format("{} at 0x{:x}: {}", finding.path, finding.offset, finding.message);
}

std::vector<Finding> Check(const inspect::Movie& movie, Extent extent, const OnRead& onRead) {
    Context context(movie, onRead);
    for (const Rule& rule : Rules()) {
        if (rule.find && rule.extent <= extent)
            rule.find(context);
    }
    std::stable_sort(context.findings.begin(), context.findings.end(),
                     [](const Finding& a, const Finding& b) { return a.rule < b.rule; });
    return context.findings;
}

}  // namespace kivmp4::check
