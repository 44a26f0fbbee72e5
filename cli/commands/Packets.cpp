// kivmp4 packets: one line for each unit, in the order of delivery.
#include <algorithm>
#include <concepts>
#include <cstdlib>
#include <map>

#include "commands/Checksum.h"
#include "commands/Commands.h"
#include "inspect/Samples.h"
#include "play/Player.h"
#include "print/Json.h"
#include "print/Progress.h"
#include "print/Text.h"

namespace kivmp4::cli {

namespace {

/// What a line tells of.
struct Row {
    const AccessUnit& unit;
    const inspect::Sample* sample;  // null where the command's own reader does not see it
    uint64_t number;                // of the unit in its track, from 0
    const std::string& sum;         // empty unless asked for
};

using Line = fmt::memory_buffer;

// A million lines are to take about a second, so numbers are not written through a format.
void Append(Line& line, std::string_view text) { line.append(text.data(), text.data() + text.size()); }

template <std::integral Number>
void Append(Line& line, Number number) {
    const fmt::format_int text(number);
    line.append(text.data(), text.data() + text.size());
}

// With six decimals, rounded: a tick is 100/9 microseconds.
void AppendSeconds(Line& line, int64_t ticks) {
    const uint64_t magnitude = ticks < 0 ? 0 - static_cast<uint64_t>(ticks) : static_cast<uint64_t>(ticks);
    const uint64_t rest = (magnitude % 90000 * 100 + 4) / 9;
    if (ticks < 0)
        Append(line, "-");
    Append(line, magnitude / 90000);
    const fmt::format_int digits(1000000 + rest);
    Append(line, ".");
    line.append(digits.data() + 1, digits.data() + 7);
}

const char* TypeOf(const AccessUnit& unit) { return unit.isVideo ? "video" : "audio"; }

/// A column has the same name in every form.
struct Column {
    std::string_view name;
    int width;    // in text; negative: aligned to the left
    bool isText;  // in JSON
    bool inText;  // without --columns
    void (*value)(const Row& row, Line& line);
};

constexpr Column kColumns[] = {
    {"track", 5, false, true, [](const Row& row, Line& line) { Append(line, row.unit.trackIndex); }},
    {"codec_type", -10, true, true, [](const Row& row, Line& line) { Append(line, TypeOf(row.unit)); }},
    {"sample", 7, false, true, [](const Row& row, Line& line) { Append(line, row.number); }},
    {"pts", 11, false, true, [](const Row& row, Line& line) { Append(line, row.unit.pts); }},
    {"pts_time", 12, false, true, [](const Row& row, Line& line) { AppendSeconds(line, row.unit.pts); }},
    {"dts", 11, false, true, [](const Row& row, Line& line) { Append(line, row.unit.dts); }},
    {"dts_time", 12, false, true, [](const Row& row, Line& line) { AppendSeconds(line, row.unit.dts); }},
    {"duration", 8, false, true, [](const Row& row, Line& line) { Append(line, row.unit.duration); }},
    {"duration_time", 13, false, false, [](const Row& row, Line& line) { AppendSeconds(line, row.unit.duration); }},
    {"size", 8, false, true, [](const Row& row, Line& line) { Append(line, row.unit.size); }},
    {"pos", 11, false, true,
     [](const Row& row, Line& line) {
         if (row.sample)
             Append(line, row.sample->offset);
     }},
    {"flags", -5, true, true, [](const Row& row, Line& line) { Append(line, row.unit.isSync ? "K" : "."); }},
    {"crc32", 8, true, false, [](const Row& row, Line& line) { Append(line, row.sum); }},
};

/// Writes lines in one of the forms. What stands in them are numbers and words of ours, so nothing needs escaping.
class Listing {
public:
    Listing(Form wanted, const PacketsArguments& arguments, Output& to) : form(wanted), path(arguments.file), out(to) {
        if (arguments.columns.empty()) {
            for (const Column& column : kColumns) {
                if (column.name == "crc32" ? arguments.hash : column.inText || form != Form::Text)
                    columns.push_back(&column);
            }
        }
        for (const std::string& name : arguments.columns)
            columns.push_back(&Find(name));
    }

    bool Shows(std::string_view name) const {
        return std::any_of(columns.begin(), columns.end(), [&](const Column* column) { return column->name == name; });
    }

    // A file that has nothing to list gets no heading.
    void Begin() {
        if (begun)
            return;
        begun = true;
        if (form == Form::Document) {
            Json head = {{"schema", "kivmp4.packets/1"}};
            AddFile(head, path);
            std::string text = head.dump(-1, ' ', false, Json::error_handler_t::replace);
            text.pop_back();
            out.Write(text + ",\"packets\":[");
        } else if (form == Form::Csv) {
            for (const Column* column : columns)
                out.Print("{}{}", column == columns.front() ? "" : ",", column->name);
            out.Write("\n");
        } else if (form == Form::Text) {
            for (const Column* column : columns)
                AppendPadded(*column, column->name);
            EndText();
        }
    }

    void Add(const Row& row) {
        Begin();
        const bool json = form == Form::Document || form == Form::Lines;
        if (form == Form::Document)
            Append(line, first ? "\n" : ",\n");
        for (const Column* column : columns) {
            value.clear();
            column->value(row, value);
            const std::string_view text(value.data(), value.size());
            if (form == Form::Text)
                AppendPadded(*column, text.empty() ? "-" : text);
            else if (json)
                AppendMember(*column, text);
            else
                AppendMore(column == columns.front() ? "" : ",", text);
        }
        if (json)
            Append(line, form == Form::Lines ? "}\n" : "}");
        else if (form == Form::Csv)
            Append(line, "\n");
        if (form == Form::Text)
            return EndText();
        first = false;
        out.Write({line.data(), line.size()});
        line.clear();
    }

    void End() {
        Begin();
        if (form == Form::Document)
            out.Write("\n]}\n");
    }

    static std::string AllNames() {
        std::string names;
        for (const Column& column : kColumns)
            names += (names.empty() ? "" : ", ") + std::string(column.name);
        return names;
    }

private:
    static const Column& Find(const std::string& name) {
        const auto* found = std::find_if(std::begin(kColumns), std::end(kColumns),
                                         [&](const Column& column) { return column.name == name; });
        if (found == std::end(kColumns))
            throw Failure{kUsage, "there is no column " + Escape(name), "columns are " + AllNames()};
        return *found;
    }
    void AppendMore(std::string_view between, std::string_view text) {
        Append(line, between);
        Append(line, text);
    }
    void AppendMember(const Column& column, std::string_view text) {
        AppendMore(&column == columns.front() ? "{\"" : ",\"", column.name);
        AppendMore(column.isText ? "\":\"" : "\":", text.empty() && !column.isText ? "null" : text);
        Append(line, column.isText ? "\"" : "");
    }
    void AppendPadded(const Column& column, std::string_view text) {
        const auto width = static_cast<size_t>(std::abs(column.width));
        const std::string padding(width > text.size() ? width - text.size() : 0, ' ');
        Append(line, " ");
        AppendMore(column.width < 0 ? text : padding, column.width < 0 ? padding : text);
    }
    // A line starts without the blank of its first column and ends without padding.
    void EndText() {
        std::string_view text(line.data() + 1, line.size() - 1);
        text = text.substr(0, text.find_last_not_of(' ') + 1);
        out.Write(text);
        out.Write("\n");
        line.clear();
    }

    Form form;
    std::string path;
    Output& out;
    std::vector<const Column*> columns;
    Line line, value;
    bool begun = false, first = true;
};

/// The samples of each track one after the other, as far as delivery has come.
class Places {
public:
    explicit Places(const Source& from) : source(from) {}
    // Of the track's next unit. @return null where the command's own reader sees none
    const inspect::Sample* Next(uint32_t track) {
        auto found = walks.find(track);
        if (found == walks.end()) {
            const inspect::Track* tables = source.Track(track);
            found = walks.emplace(track, tables ? std::make_unique<Walk>(*tables) : nullptr).first;
        }
        Walk* walk = found->second.get();
        return walk && walk->samples.Next(walk->sample) ? &walk->sample : nullptr;
    }

private:
    struct Walk {
        explicit Walk(const inspect::Track& track) : samples(track) {}
        inspect::SampleWalk samples;
        inspect::Sample sample;
    };
    const Source& source;
    std::map<uint32_t, std::unique_ptr<Walk>> walks;
};

}  // namespace

ExitCode Packets(const Settings& settings, const PacketsArguments& arguments, Output& out) {
    const bool document = settings.json && arguments.form == Form::Text;
    Listing listing(document ? Form::Document : arguments.form, arguments, out);
    std::unique_ptr<Checksum> sum = listing.Shows("crc32") ? std::make_unique<Checksum>("crc32") : nullptr;
    const Source source(arguments.file);
    Player player(source, settings);
    player.Enable(arguments.tracks);
    const int64_t from = arguments.from ? arguments.from->At(player.Duration()) : INT64_MIN;
    const int64_t to = arguments.to ? arguments.to->At(player.Duration()) : INT64_MAX;

    AccessUnit unit;
    KivMp4InitUnit(player.Handle(), &unit);
    Places places(source);
    std::map<uint32_t, uint64_t> numbers;
    uint64_t listed = 0;
    const auto list = [&] {
        Progress progress(settings, "packets", source.File().Size());
        while ((!arguments.count || listed < *arguments.count) && player.Next(unit)) {
            progress.Add(static_cast<uint64_t>(unit.size));
            const inspect::Sample* sample = places.Next(unit.trackIndex);
            const uint64_t number = numbers[unit.trackIndex]++;
            // Decode times ascend, so nothing of the track is wanted any more.
            if (unit.dts >= to)
                player.SetEnabled(unit.trackIndex, false);
            if (unit.pts < from || unit.pts >= to || (arguments.sync && !unit.isSync))
                continue;
            if (sum)
                sum->Add(unit.payload, static_cast<size_t>(unit.size));
            listing.Add({unit, sample, number, sum ? sum->Take() : std::string()});
            listed++;
        }
    };
    try {
        list();
    } catch (const Failure&) {
        if (listed > 0)
            listing.End();  // what was listed stays a document
        throw;
    }
    if (numbers.empty() && !(arguments.count && *arguments.count == 0))
        player.RequireUnits();
    listing.End();
    return kDone;
}

}  // namespace kivmp4::cli
