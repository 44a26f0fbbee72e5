// Fuzz target: the command's own reader of boxes and sample tables, and the rules of kivmp4 check, over bytes in memory.
#include "Player.h"

#include "check/Check.h"

using namespace kivmp4::inspect;
using kivmp4::fuzz::Require;

namespace {

constexpr size_t kMaxSamples = 4096;

void LookAtBoxes(const Box& box) {
    for (const Box* child : box.children) {
        Require(child->offset >= box.offset && child->End() <= box.End(), "children lie in their parent");
        Require(child->Content() <= child->End(), "a header lies in its box");
        Require(!child->Path().empty(), "every box has a path");
        LookAtBoxes(*child);
    }
}

void LookAtSamples(const File& file, const Track& track) {
    for (const Table* table :
         {&track.stts, &track.ctts, &track.stss, &track.stsz, &track.stsc, &track.stco, &track.elst})
        Require(table->bytes.size() <= file.Size() && table->count <= table->claimed, "no table outgrows the file");
    SampleWalk walk(track);
    Sample sample;
    for (size_t i = 0; i < kMaxSamples && walk.Next(sample); i++)
        Require(sample.number == i && sample.chunk < track.stco.count, "samples come in turn, from chunks that exist");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const File file(Bytes(data, data + size));
    const Movie movie(file);
    LookAtBoxes(movie.Root());
    for (const Track& track : movie.tracks)
        LookAtSamples(file, track);
    for (const kivmp4::check::Finding& finding : kivmp4::check::Check(movie, kivmp4::check::Extent::Units))
        Require(!kivmp4::check::WithPlace(finding).empty(), "every finding says something");
    return 0;
}
