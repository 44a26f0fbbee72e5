// Look-ups in a table of runs.
#include "container/RunTable.h"

namespace kivmp4 {

bool RunTable::Acquire(Mp4Box* box) {
    if (!table.Acquire(box, 8))
        return false;
    for (uint32_t at = 0; at < table.Count(); ++at) {
        samples += CountOf(at);
        sum += uint64_t{CountOf(at)} * ValueOf(at);
        if (samples <= INT32_MAX)
            runs = at + 1;
    }
    return true;
}

void RunTable::Release() {
    table.Release();
    samples = sum = runs = 0;
}

void RunTable::Pass(Place& before, uint32_t passed) const {
    before.sample += CountOf(passed);
    before.sum += uint64_t{CountOf(passed)} * ValueOf(passed);
}

bool RunTable::HasIndex() {
    return index.Make(runs, [this](Place& before, uint32_t from, uint32_t to) {
        for (; from < to; ++from)
            Pass(before, from);
        return true;
    });
}

void RunTable::GoTo(uint32_t block) {
    here = block * SkipIndex<Place>::kStep;
    place = index[block];
}

// Moves the cursor to an entry at or before the sample's, and near it. @return whether there is an index
bool RunTable::SkipToNear(uint32_t sample) {
    if (!HasIndex())
        return false;
    GoTo(index.LastBlock([=](const Place& start) { return start.sample <= sample; }));
    return true;
}

// Searches ask for one sample after the other, forward and backward: near ones are reached step by step.
bool RunTable::Find(uint32_t sample) {
    for (uint32_t steps = 0; sample < place.sample; ++steps) {
        if (steps == SkipIndex<Place>::kStep && SkipToNear(sample))
            break;
        --here;
        place.sample -= CountOf(here);
        place.sum -= uint64_t{CountOf(here)} * ValueOf(here);
    }
    for (uint32_t steps = 0; here < runs; ++steps, ++here) {
        if (steps == SkipIndex<Place>::kStep)
            SkipToNear(sample);
        if (sample - place.sample < CountOf(here))
            return true;
        Pass(place, here);
    }
    return false;
}

// Sums ascend, and a sample with a lower one lies before every sample of a block that begins at or above `wanted`.
uint32_t RunTable::FirstWithSum(uint64_t wanted) {
    here = 0;
    place = {};
    if (HasIndex())
        GoTo(index.LastBlock([=](const Place& start) { return start.sum < wanted; }));
    for (;; Pass(place, here++)) {
        const uint64_t count = CountOf(here), value = ValueOf(here);
        if (count == 0 || place.sum + (count - 1) * value < wanted)
            continue;
        const uint64_t within = place.sum < wanted ? (wanted - place.sum + value - 1) / value : 0;
        return static_cast<uint32_t>(place.sample + within);
    }
}

}  // namespace kivmp4
