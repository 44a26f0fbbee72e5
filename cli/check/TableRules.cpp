// Rules about the sample tables of a track: each by itself, and whether they speak of the same samples.
#include "check/Check.h"

namespace kivmp4::check {
namespace {

using namespace inspect;

std::string Of(const Track& track, uint64_t count) { return NameOf(track) + ": " + std::to_string(count); }

void FindLimits(Context& context, const Track& track) {
    for (const Table* table : {&track.stts, &track.ctts, &track.stss, &track.stsz, &track.stsc, &track.stco}) {
        if (table->tooLarge)
            context.Add("limited", *table->box, Of(track, table->claimed) + " entries are too many to look at");
    }
    if (track.limited)
        context.Add("limited", *track.stsz.box,
                    Of(track, track.stsz.claimed) + " samples, only the first " + std::to_string(track.sampleCount) +
                        " are looked at");
}

// Whether the table is there with all its entries; `most`: entries of `entrySize` bytes are needed.
void FindShort(Context& context, const Track& track, const Table& table) {
    if (table && !table.tooLarge && table.count < table.claimed)
        context.Add("table-short", *table.box,
                    Of(track, table.claimed) + " entries announced, there are " + std::to_string(table.count));
}

void FindMissing(Context& context, const Track& track) {
    const Box* stbl = track.Stbl();
    const Table* tables[] = {&track.stts, &track.stsz, &track.stsc, &track.stco};
    const char* names[] = {"stts", "stsz", "stsc", "stco"};
    for (size_t i = 0; i < 4; i++) {
        if (!*tables[i])
            context.Add("table-missing", *stbl, NameOf(track) + " has no '" + names[i] + "' box");
    }
}

uint64_t Sum(const Table& table) {
    uint64_t sum = 0;
    for (uint32_t i = 0; i < table.count; i++)
        sum += table.At(i);
    return sum;
}

// A table cut short has been told already.
void FindCount(Context& context, const char* rule, const Track& track, const Table& table, uint64_t samples) {
    if (!table || table.count < table.claimed)
        return;
    const uint64_t sum = Sum(table);
    if (sum != samples)
        context.Add(rule, *table.box, Of(track, sum) + " samples, 'stsz' has " + std::to_string(samples));
}

void FindSyncEntries(Context& context, const Track& track, uint64_t samples) {
    const Table& stss = track.stss;
    uint32_t before = 0;
    for (uint32_t i = 0; i < stss.count; i++) {
        const uint32_t number = stss.At(i);
        if (number <= before || number > samples) {
            context.Add("stss-entry", stss.OffsetOf(i), stss.box->Path(),
                        NameOf(track) + ": entry " + std::to_string(i) + " is sample " + std::to_string(number) +
                            (number > samples ? " of " + std::to_string(samples) : " after " + std::to_string(before)));
            return;
        }
        before = number;
    }
}

// @return whether the map can be followed
bool FindChunkMap(Context& context, const Track& track) {
    const Table& stsc = track.stsc;
    for (uint32_t i = 0; i < stsc.count; i++) {
        const uint32_t chunk = stsc.At(i), before = i ? stsc.At(i - 1) : 0;
        const bool wrong = i ? chunk <= before : chunk != 1;
        if (!wrong && chunk <= track.stco.count && stsc.At(i, 1))
            continue;
        context.Add("stsc-entry", stsc.OffsetOf(i), stsc.box->Path(),
                    NameOf(track) + ": entry " + std::to_string(i) + " starts at chunk " + std::to_string(chunk) +
                        " of " + std::to_string(track.stco.count) + " with " + std::to_string(stsc.At(i, 1)) +
                        " samples in each");
        return false;
    }
    return stsc.count > 0;
}

void FindChunkCount(Context& context, const Track& track, uint64_t samples) {
    const Table& stsc = track.stsc;
    uint64_t sum = 0;
    for (uint32_t i = 0; i < stsc.count; i++) {
        const uint64_t end = i + 1 < stsc.count ? stsc.At(i + 1) : uint64_t{track.stco.count} + 1;
        sum += (end - stsc.At(i)) * stsc.At(i, 1);
    }
    if (sum != samples)
        context.Add("chunk-count", *track.stco.box,
                    NameOf(track) + ": " + std::to_string(track.stco.count) + " chunks hold " + std::to_string(sum) +
                        " samples, 'stsz' has " + std::to_string(samples));
}

}  // namespace

void FindTableFaults(Context& context) {
    if (context.movie.Tree().Limited())
        context.Add("limited", 0, "", "the file has too many boxes to look at, or they nest too deep");
    for (const Track& track : context.movie.tracks) {
        // The tables of a fragmented file are empty; this has been told.
        if (!track.Played() || context.movie.fragment)
            continue;
        FindLimits(context, track);
        FindMissing(context, track);
        for (const Table* table : {&track.stts, &track.ctts, &track.stss, &track.stsc, &track.stco, &track.elst})
            FindShort(context, track, *table);
        const bool sizesKnown = track.constantSize || track.stsz.count == track.stsz.claimed;
        if (!track.constantSize)
            FindShort(context, track, track.stsz);
        if (!track.stsz || !sizesKnown)
            continue;
        const uint64_t samples = track.stsz.claimed;
        FindCount(context, "stts-count", track, track.stts, samples);
        FindCount(context, "ctts-count", track, track.ctts, samples);
        FindSyncEntries(context, track, samples);
        const bool chunksKnown =
            track.stco && track.stco.count == track.stco.claimed && track.stsc.count == track.stsc.claimed;
        if (chunksKnown && FindChunkMap(context, track))
            FindChunkCount(context, track, samples);
    }
}

}  // namespace kivmp4::check
