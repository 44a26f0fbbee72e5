// Rules about the samples themselves, which have to be read for them: the NAL units of H.264.
#include "check/Check.h"

namespace kivmp4::check {
namespace {

using namespace inspect;

constexpr size_t kMaxSample = size_t{64} << 20;
enum Nal : uint8_t { kIdr = 5, kSps = 7, kPps = 8 };

struct Content {
    bool idr = false, sets = false;
    std::string broken = {};  // what is wrong, or nothing
};

Content Look(const Bytes& sample, int lengthSize) {
    Content content;
    Fields fields(sample);
    while (fields.Left() && content.broken.empty()) {
        const uint64_t length = fields.Unsigned(lengthSize);
        if (fields.Failed() || length > fields.Left()) {
            content.broken = "NAL length " + std::to_string(length) + ", " + std::to_string(fields.Left()) +
                             " bytes are left in the sample";
            break;
        }
        if (length == 0)
            continue;
        const uint8_t type = fields.U8() & 31;
        content.idr = content.idr || type == kIdr;
        content.sets = content.sets || type == kSps || type == kPps;
        fields.Skip(static_cast<size_t>(length) - 1);
    }
    return content;
}

/// The first place of a fault, and how often it comes.
struct Tally {
    const char* rule;
    uint64_t count = 0, offset = 0;
    std::string first = {};

    void Note(const Sample& sample, const std::string& what) {
        if (count++ == 0) {
            offset = sample.offset;
            first = "sample " + std::to_string(sample.number) + " " + what;
        }
    }
    void Report(Context& context, const Track& track) const {
        if (count)
            context.Add(rule, offset, "mdat",
                        NameOf(track) + ": " + first + (count > 1 ? "; " + std::to_string(count) + " in all" : ""));
    }
};

void LookAtUnits(Context& context, const Track& track) {
    Tally broken{"nal-length"}, sync{"sync-nal"}, sets{"parameter-sets-inside"};
    for (const Sample& sample : context.SamplesOf(track)) {
        if (sample.End() > context.file.Size())
            continue;  // told already
        if (context.onRead)
            context.onRead(sample.size);
        const Content content = Look(context.file.ReadBytes(sample.offset, sample.size, kMaxSample),
                                     static_cast<int>(track.Entry()->nalLengthSize));
        if (!content.broken.empty())
            broken.Note(sample, "has " + content.broken);
        else if (content.idr != sample.key)
            sync.Note(sample, sample.key ? "is marked as a key frame and has no IDR picture"
                                         : "is an IDR picture and not marked");
        if (content.sets)
            sets.Note(sample, "holds parameter sets");
    }
    for (const Tally* tally : {&broken, &sync, &sets})
        tally->Report(context, track);
}

}  // namespace

void FindUnitFaults(Context& context) {
    for (const Track& track : context.movie.tracks) {
        if (track.Played() && track.Entry()->type == "avc1" && track.Entry()->nalLengthSize)
            LookAtUnits(context, track);
    }
}

}  // namespace kivmp4::check
