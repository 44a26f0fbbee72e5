// What is in a file: its boxes, and what those of the movie and its tracks say.
#include "inspect/Movie.h"

#include <algorithm>

namespace kivmp4::inspect {

Movie::Movie(const File& from) : file(from), tree(from) {
    const Box& root = tree.Root();
    moov = root.Child("moov");
    mdat = root.Child("mdat");
    fragment = root.Child("moof");
    if (!fragment && moov)
        fragment = moov->Child("mvex");
    if (!fragment)
        fragment = root.Child("sidx");
    const Box* meta = root.Child("meta");
    if (meta && meta->Child("iloc"))
        items = meta;
    ReadBrands();
    if (!moov)
        return;
    ReadMovieHeader();
    for (const Box* child : moov->children) {
        if (child->type == "trak")
            tracks.push_back(ReadTrack(file, *child, static_cast<uint32_t>(tracks.size())));
    }
}

void Movie::ReadBrands() {
    const Box* ftyp = tree.Root().Child("ftyp");
    const Bytes bytes = ftyp ? file.ReadBytes(ftyp->Content(), ftyp->ContentSize(), 4096) : Bytes();
    for (size_t i = 0; i + 4 <= bytes.size(); i += 4) {
        const std::string brand(reinterpret_cast<const char*>(&bytes[i]), 4);
        if (i == 0)
            majorBrand = brand;
        else if (i >= 8)  // past the minor version
            brands.push_back(brand);
    }
}

void Movie::ReadMovieHeader() {
    const Box* mvhd = moov->Child("mvhd");
    if (!mvhd)
        return;
    const Bytes bytes = file.ReadBytes(mvhd->Content(), mvhd->ContentSize(), 128);
    const int wide = mvhd->version == 1 ? 8 : 4;
    Fields fields(bytes);
    fields.Skip(static_cast<size_t>(wide) * 2);
    timescale = fields.U32();
    duration = fields.Unsigned(wide);
}

std::string Stranger(const File& file) {
    struct Mark {
        size_t offset;
        std::string_view bytes;
        const char* name;
    };
    using namespace std::string_view_literals;
    static constexpr Mark marks[] = {
        {0, "\x1A\x45\xDF\xA3"sv, "a Matroska or WebM file"},
        {8, "AVI "sv, "an AVI file"},
        {8, "WAVE"sv, "a WAVE file"},
        {0, "OggS"sv, "an Ogg file"},
        {0, "fLaC"sv, "a FLAC file"},
        {0, "FLV\1"sv, "a Flash video"},
        {0, "ID3"sv, "an MP3 file"},
        {0, "\xFF\xFB"sv, "an MP3 file"},
        {0, "\0\0\1\xBA"sv, "an MPEG program stream"},
        {0, "\0\0\0\1\x67"sv, "a bare H.264 stream"},
        {0, "\0\0\0\1\x09"sv, "a bare H.264 stream"},
        {0, "\xFF\xF1"sv, "a bare AAC stream"},
        {0, "\x30\x26\xB2\x75"sv, "a Windows Media file"},
        {0, "\0\x05\x16\x07"sv, "an AppleDouble file (macOS metadata)"},
        {0, "\x89PNG"sv, "a PNG picture"},
        {0, "\xFF\xD8\xFF"sv, "a JPEG picture"},
        {0, "GIF8"sv, "a GIF picture"},
        {0, "%PDF"sv, "a PDF document"},
        {0, "PK\3\4"sv, "a ZIP archive"},
        {0, "\x1F\x8B"sv, "a gzip archive"},
        {0,
         "\x7F"
         "ELF"sv,
         "a program"},
        {0, "<!DOCTYPE"sv, "a web page"},
        {0, "<html"sv, "a web page"},
        {0, "#EXTM3U"sv, "an M3U playlist"},
    };
    const Bytes head = file.ReadBytes(0, 377, 377);
    const std::string_view text(reinterpret_cast<const char*>(head.data()), head.size());
    for (const Mark& mark : marks) {
        if (text.size() > mark.offset && text.substr(mark.offset).starts_with(mark.bytes))
            return mark.name;
    }
    if (text.size() > 376 && text[0] == 'G' && text[188] == 'G' && text[376] == 'G')
        return "an MPEG transport stream";
    const bool printable = std::all_of(
        text.begin(), text.end(), [](char c) { return (c >= ' ' && c <= '~') || c == '\n' || c == '\r' || c == '\t'; });
    return !text.empty() && printable ? "a text file" : "";
}

}  // namespace kivmp4::inspect
