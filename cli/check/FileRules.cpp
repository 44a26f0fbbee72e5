// Rules about the file as a whole: its kind, its end, its index.
#include "check/Check.h"
#include "inspect/Facts.h"

#include <fmt/format.h>

namespace kivmp4::check {
namespace {

using namespace inspect;

std::string FirstBytes(const File& file) {
    std::string text;
    for (const uint8_t byte : file.ReadBytes(0, 4, 4))
        text += fmt::format(" {:02x}", byte);
    return text;
}

bool IsMp4(const Movie& movie) {
    const Box& root = movie.Root();
    for (const char* type : {"ftyp", "moov", "mdat", "moof", "styp"}) {
        if (root.Child(type))
            return true;
    }
    return false;
}

// How much of what the tables list lies before the file's end.
std::string Readable(const Context& context) {
    std::string text;
    for (const Track& track : context.movie.tracks) {
        if (!track.Played())
            continue;
        const Facts facts = FactsOf(context.file, track);
        text += fmt::format("{}{} of {} units of {} (up to {:.3f} s)", text.empty() ? "" : ", ", facts.readable,
                            track.constantSize ? track.stsz.claimed : track.sampleCount, NameOf(track),
                            static_cast<double>(facts.readableUntil) / 90000);
    }
    return text.empty() ? "" : "; readable: " + text;
}

void FindFrameFaults(Context& context, const Box& box) {
    for (const Box* child : box.children) {
        // Whatever runs past the file's end is cut off, in its parent too.
        const bool pastEnd = child->Truncated() && child->End() == context.file.Size();
        if (pastEnd && box.type.empty()) {
            context.truncated = true;
            context.Add("truncated", *child,
                        "claims " + std::to_string(child->claimedSize) + " bytes, " +
                            std::to_string(child->claimedSize - child->size) + " more than the file has" +
                            Readable(context));
        } else if (!child->problem.empty() && !context.truncated) {
            context.Add("box-frame", *child, child->problem);
        }
        FindFrameFaults(context, *child);
    }
}

}  // namespace

void FindFileFaults(Context& context) {
    const Movie& movie = context.movie;
    if (!IsMp4(movie)) {
        const std::string kind = Stranger(movie.Source());
        const std::string what = context.file.Size() == 0 ? "is empty"
                                 : !kind.empty()          ? "is " + kind
                                                 : "is not an MP4 file: first bytes" + FirstBytes(context.file);
        context.Add("not-mp4", 0, "", what);
        return;
    }
    const Box& root = movie.Root();
    FindFrameFaults(context, root);
    if (!root.problem.empty() && !context.truncated)
        context.Add("box-frame", root.children.empty() ? 0 : root.children.back()->End(), "", root.problem);
    if (movie.fragment)
        context.Add("fragmented", *movie.fragment, "the samples lie in fragments, which are not played");
    if (!movie.moov && !movie.fragment)
        context.Add("no-moov", 0, "", movie.items ? "holds pictures as items (HEIF), no movie" : "has no 'moov' box");
    else if (movie.moov && movie.mdat && !movie.MoovFirst())
        context.Add("moov-last", *movie.moov, "'moov' follows the samples: a player must read the end first");
}

}  // namespace kivmp4::check
