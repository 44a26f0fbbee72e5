// kivmp4 boxes: the tree of boxes with places, sizes and the fields that matter.
#include "commands/Boxes.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "play/Source.h"
#include "print/Json.h"
#include "print/Text.h"

namespace kivmp4::cli {
namespace {

using namespace inspect;

constexpr size_t kMaxHeader = 256;  // bytes of fields that are looked at
constexpr size_t kHexBytes = 64;

/// Columns of a table whose rows follow a count; `skip` bytes precede it.
struct TableForm {
    const char* type;
    uint32_t skip, columns, columnSize;
};
constexpr TableForm kTables[] = {
    {"stts", 0, 2, 4}, {"ctts", 0, 2, 4}, {"stss", 0, 1, 4}, {"stsc", 0, 3, 4},
    {"stsz", 4, 1, 4}, {"stco", 0, 1, 4}, {"co64", 0, 1, 8},
};

const TableForm* FormOf(const Box& box) {
    const auto found = std::find_if(std::begin(kTables), std::end(kTables),
                                    [&](const TableForm& form) { return box.type == form.type; });
    return found == std::end(kTables) ? nullptr : found;
}

using FieldList = std::vector<std::pair<std::string, Json>>;

void AddHeader(FieldList& list, Fields fields, int wide, bool track) {
    fields.Skip(static_cast<size_t>(wide) * 2);
    list.emplace_back(track ? "track_id" : "timescale", fields.U32());
    if (track)
        fields.Skip(4);
    list.emplace_back("duration", fields.Unsigned(wide));
}

Json TypeField(Fields& fields) {
    const Bytes bytes = fields.Take(4);
    return TypeText(std::string(bytes.begin(), bytes.end()));
}

FieldList FieldsOf(const File& file, const Box& box) {
    const Bytes bytes = file.ReadBytes(box.Content(), box.ContentSize(), kMaxHeader);
    Fields fields(bytes);
    FieldList list;
    const int wide = box.version == 1 ? 8 : 4;
    if (box.type == "ftyp") {
        list.emplace_back("major_brand", TypeField(fields));
        list.emplace_back("minor_version", fields.U32());
        Json brands = Json::array();
        while (fields.Left() >= 4)
            brands.push_back(TypeField(fields));
        list.emplace_back("compatible_brands", brands);
    } else if (box.type == "mvhd" || box.type == "mdhd" || box.type == "tkhd") {
        AddHeader(list, fields, wide, box.type == "tkhd");
    } else if (box.type == "hdlr") {
        fields.Skip(4);
        list.emplace_back("handler", TypeField(fields));
    } else if (box.type == "stsz") {
        list.emplace_back("sample_size", fields.U32());
    }
    if (const TableForm* form = FormOf(box)) {
        Fields count(bytes);
        count.Skip(form->skip);
        list.emplace_back("entry_count", count.U32());
    } else if (box.type == "stsd" || box.type == "elst" || box.type == "dref") {
        list.emplace_back("entry_count", fields.U32());
    }
    return list;
}

// The first rows of a table, at most `most`, and no more than the box holds.
Json RowsOf(const File& file, const Box& box, uint32_t most) {
    Json rows = Json::array();
    TableForm form{"elst", 0, box.version == 1 ? 5u : 3u, 4};  // its wide columns are shown in halves
    if (const TableForm* known = FormOf(box))
        form = *known;
    else if (box.type != "elst")
        return rows;
    const Bytes head = file.ReadBytes(box.Content() + form.skip, 4, 4);
    if (box.ContentSize() < form.skip + 4 || head.size() < 4)
        return rows;
    const uint64_t rowSize = form.columns * form.columnSize, start = box.Content() + form.skip + 4;
    const uint64_t count = std::min({ReadNumber(head.data(), 4), uint64_t{most}, (box.End() - start) / rowSize});
    for (uint64_t i = 0; i < count; i++) {
        const Bytes bytes = file.ReadBytes(start + i * rowSize, rowSize, 64);
        Fields fields(bytes);
        Json row = Json::array();
        for (uint32_t column = 0; column < form.columns; column++) {
            const uint64_t value = fields.Unsigned(static_cast<int>(form.columnSize));
            const bool hasSign =
                (box.type == "ctts" && column == 1) || (box.type == "elst" && form.columns == 3 && column == 1);
            row.push_back(hasSign ? Json(static_cast<int32_t>(value)) : Json(value));
        }
        rows.push_back(row);
    }
    return rows;
}

std::string HexOf(const File& file, const Box& box) {
    const Bytes bytes = file.ReadBytes(box.Content(), box.ContentSize(), kHexBytes);
    return Hex(bytes.data(), bytes.size());
}

bool IsShown(const Box& box, const BoxesOptions& options) {
    return box.depth <= options.depth && (options.path.empty() || Matches(options.path, box.Path()));
}

std::string Line(const File& file, const Box& box, const BoxesOptions& options) {
    const std::string indent(size_t{2} * (options.path.empty() ? box.depth : 0), ' ');
    std::string text = indent + (options.path.empty() ? TypeText(box.type) : Escape(box.Path()));
    text += fmt::format("  at 0x{:x}, {} bytes", box.offset, box.claimedSize);
    if (box.hasVersion)
        text += fmt::format(", version {}, flags 0x{:06x}", box.version, box.flags);
    for (const auto& [name, value] : FieldsOf(file, box))
        text += ", " + name + " " + (value.is_string() ? value.get<std::string>() : value.dump());
    if (!box.problem.empty())
        text += "  !! " + box.problem;
    text += "\n";
    for (const Json& row : RowsOf(file, box, options.entries))
        text += indent + "    " + row.dump() + "\n";
    if (options.hex && box.children.empty())
        text += indent + "    " + HexOf(file, box) + "\n";
    return text;
}

void AppendText(const File& file, const Box& parent, const BoxesOptions& options, std::string& text) {
    for (const Box* box : parent.children) {
        if (IsShown(*box, options))
            text += Line(file, *box, options);
        AppendText(file, *box, options, text);
    }
}

Json Describe(const File& file, const Box& box, const BoxesOptions& options) {
    Json json = {{"type", TypeText(box.type)},
                 {"path", Escape(box.Path())},
                 {"offset", box.offset},
                 {"size", box.claimedSize},
                 {"header_size", box.headerSize}};
    if (box.hasVersion) {
        json["version"] = box.version;
        json["flags"] = box.flags;
    }
    for (const auto& [name, value] : FieldsOf(file, box))
        json["fields"][name] = value;
    if (const Json rows = RowsOf(file, box, options.entries); !rows.empty())
        json["entries"] = rows;
    if (options.hex && box.children.empty())
        json["hex"] = HexOf(file, box);
    if (!box.problem.empty())
        json["problem"] = box.problem;
    return json;
}

// Boxes that match a path stand in one list; without a path each box holds its children.
void AppendJson(const File& file, const Box& parent, const BoxesOptions& options, Json& list) {
    for (const Box* box : parent.children) {
        const bool shown = IsShown(*box, options);
        Json json = shown ? Describe(file, *box, options) : Json();
        if (options.path.empty() && shown) {
            json["children"] = Json::array();
            AppendJson(file, *box, options, json["children"]);
        }
        if (shown)
            list.push_back(std::move(json));
        if (!options.path.empty())
            AppendJson(file, *box, options, list);
    }
}

// Splits off what stands before the first "/".
std::string_view Level(std::string_view& path) {
    const size_t end = std::min(path.find('/'), path.size());
    const std::string_view level = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    return level;
}

bool MatchLevels(std::string_view pattern, std::string_view path) {
    if (pattern.empty() || path.empty())
        return pattern.empty() && path.empty();
    std::string_view patternRest = pattern, pathRest = path;
    const std::string_view wanted = Level(patternRest), level = Level(pathRest);
    if (wanted == "**")
        return MatchLevels(patternRest, path) || MatchLevels(pattern, pathRest);
    const bool fits = wanted == "*" || wanted == level || wanted == level.substr(0, level.find('['));
    return fits && MatchLevels(patternRest, pathRest);
}

}  // namespace

// "**/**/..." would try every way to share the levels; repeated ones mean no more than one.
bool Matches(const std::string& pattern, const std::string& path) {
    std::string simple = pattern;
    for (size_t at; (at = simple.find("**/**")) != std::string::npos;)
        simple.erase(at, 3);
    return MatchLevels(simple, path);
}

std::string BoxesText(const Movie& movie, const BoxesOptions& options) {
    std::string text;
    AppendText(movie.Source(), movie.Root(), options, text);
    if (!movie.Root().problem.empty() && options.path.empty())
        text += "!! " + movie.Root().problem + "\n";
    return text;
}

Json BoxesJson(const Movie& movie, const BoxesOptions& options) {
    Json list = Json::array();
    AppendJson(movie.Source(), movie.Root(), options, list);
    return {{"size", movie.Source().Size()}, {"boxes", list}};
}

ExitCode Boxes(const Settings& settings, const BoxesArguments& arguments, Output& out) {
    const Source source(arguments.file);
    const Movie& movie = source.Movie();
    const std::string kind = Stranger(source.File());
    if (!kind.empty() || movie.Root().children.empty())
        throw source.Refuse(kNotUsable, "is not an MP4 file: " + (kind.empty() ? "it has no boxes" : "it is " + kind));
    if (!settings.json) {
        const std::string text = BoxesText(movie, arguments.options);
        if (text.empty())
            throw source.Refuse(kUsage, "no box matches " + Escape(arguments.options.path),
                                "patterns look like moov/trak[1]/**/stts");
        out.Write(text);
    } else {
        Json json = {{"schema", "kivmp4.boxes/1"}};
        AddFile(json, source.Path());
        json.update(BoxesJson(movie, arguments.options));
        out.Write(Dump(json));
    }
    source.RequireReads();
    return kDone;
}

}  // namespace kivmp4::cli
