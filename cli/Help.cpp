// What the command says of itself: help with examples, and the word that was meant.
#include "Help.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>

namespace kivmp4::cli {

namespace {

const std::map<std::string, std::string> kExamples = {
    {"kivmp4",
     "  kivmp4 clip.mp4                        what is in it\n"
     "  kivmp4 check *.mp4                     what is wrong with it, where, and what to do\n"
     "  kivmp4 seek clip.mp4 1:30 50%          where seeks land\n"
     "  kivmp4 keys clip.mp4 --stats           which frames are key frames\n"
     "  kivmp4 packets clip.mp4 --count 10     the coded units, times and places\n"
     "  kivmp4 extract clip.mp4 --video -o -   the raw stream\n"},
    {"info", "  kivmp4 info clip.mp4 film.mp4\n  kivmp4 info clip.mp4 --json | jq .tracks[0].bit_rate\n"},
    {"packets",
     "  kivmp4 packets clip.mp4 --track 0 --sync\n"
     "  kivmp4 packets clip.mp4 --from 1:00 --to 1:10 --csv --columns pts_time,size\n"
     "  kivmp4 packets film.mp4 --ndjson --hash | head\n"},
    {"keys", "  kivmp4 keys clip.mp4 --stats\n  kivmp4 keys clip.mp4 --backward --csv\n"},
    {"seek", "  kivmp4 seek clip.mp4 12.5 1:02:03.5 90000t 50%\n"},
    {"extract",
     "  kivmp4 extract clip.mp4 -o tracks                         every track, into a directory\n"
     "  kivmp4 extract clip.mp4 --video -o clip.h264\n"
     "  kivmp4 extract clip.mp4 --audio -o - | ffplay -\n"
     "  kivmp4 extract film.mp4 --video --from 10:00 --to 10:30 -o part.h264\n"},
    {"boxes", "  kivmp4 boxes clip.mp4 --depth 2\n  kivmp4 boxes clip.mp4 --path 'moov/**/stts' --entries 5\n"},
    {"check", "  kivmp4 check *.mp4\n  kivmp4 check film.mp4 --deep --strict\n  kivmp4 check --list-rules\n"},
    {"hash", "  kivmp4 hash clip.mp4\n  kivmp4 hash clip.mp4 --algorithm crc32 --per-unit\n"},
    {"diff", "  kivmp4 diff before.mp4 after.mp4\n  kivmp4 diff before.mp4 after.mp4 --payload\n"},
    {"sheet", "  kivmp4 sheet film.mp4 -o film.png\n  kivmp4 sheet film.mp4 -o - --columns 6 --every 1:00 | display\n"},
    {"trace",
     "  kivmp4 trace film.mp4 --latency 1 --bandwidth 20     on a memory card\n"
     "  kivmp4 trace film.mp4 --seeks 3 --reads              each read of three seeks\n"},
    {"completion", "  kivmp4 completion bash > ~/.local/share/bash-completion/completions/kivmp4\n"},
};

class HelpFormatter : public CLI::Formatter {
public:
    std::string make_description(const CLI::App* app) const override {
        std::string text = app->get_description() + "\n\n";
        if (const auto found = kExamples.find(app->get_name()); found != kExamples.end())
            text += "Examples:\n" + found->second + "\n";
        return text;
    }
};

// Letters to add, drop, change or swap with the next one to get from one word to the other.
size_t EditDistance(const std::string& a, const std::string& b) {
    std::vector<std::vector<size_t>> rows(a.size() + 1, std::vector<size_t>(b.size() + 1));
    for (size_t i = 0; i <= a.size(); i++) {
        for (size_t j = 0; j <= b.size(); j++) {
            size_t& cell = rows[i][j];
            if (i == 0 || j == 0) {
                cell = i + j;
                continue;
            }
            cell = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                cell = std::min(cell, rows[i - 2][j - 2] + 1);
        }
    }
    return rows[a.size()][b.size()];
}

}  // namespace

std::shared_ptr<CLI::FormatterBase> MakeHelpFormatter() { return std::make_shared<HelpFormatter>(); }

std::string HelpOf(const CLI::App& app) {
    return app.get_formatter()->make_help(&app, app.get_parent() ? "kivmp4 " + app.get_name() : app.get_name(),
                                          CLI::AppFormatMode::Normal);
}

std::string Suggestion(const std::string& word, const std::vector<std::string>& known) {
    const auto nearest = std::min_element(known.begin(), known.end(), [&](const std::string& a, const std::string& b) {
        return EditDistance(word, a) < EditDistance(word, b);
    });
    if (nearest == known.end() || EditDistance(word, *nearest) > std::max<size_t>(1, word.size() / 3))
        return "";
    return "did you mean '" + *nearest + "'?";
}

}  // namespace kivmp4::cli
