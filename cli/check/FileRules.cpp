// Rules about the file as a whole: its kind, its end, its index.
#include "check/Check.h"

namespace kivmp4::check {
namespace {

using namespace inspect;

std::string FirstBytes(const File& file) {
    std::string text;
    for (const uint8_t byte : file.ReadBytes(0, 4, 4))
        text += Format(" %02x", byte);
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
        const auto& samples = context.SamplesOf(track);
        size_t there = 0;
        double until = 0;
        for (const Sample& sample : samples) {
            if (sample.End() > context.file.Size())
                continue;
            there++;
            if (track.timescale)
                until = static_cast<double>(sample.dts + sample.duration) / track.timescale;
        }
        if (context.Played(track))
            text += Format("%s%zu of %u units of %s (up to %.3f s)", text.empty() ? "" : ", ", there,
                           track.constantSize ? track.stsz.claimed : track.sampleCount, NameOf(track).c_str(), until);
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
        context.Add("fragmented", *movie.fragment, "'" + movie.fragment->type + "': the samples lie in fragments");
    if (!movie.moov && !movie.fragment)
        context.Add("no-moov", 0, "", movie.items ? "holds pictures as items (HEIF), no movie" : "has no 'moov' box");
    else if (movie.moov && movie.mdat && !movie.MoovFirst())
        context.Add("moov-last", *movie.moov, "'moov' follows the samples: a player must read the end first");
}

}  // namespace kivmp4::check
