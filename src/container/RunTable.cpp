// Searching a table of runs.
#include "container/RunTable.h"

#include <algorithm>

#include "support/ModuleHeap.h"

namespace kivmp4 {

RunTable::~RunTable() { ModuleFree(marks); }

bool RunTable::Acquire(Mp4Box& box) {
    if (!content.Acquire(&box) || content->size < kTableHeader)
        return false;
    entries = TableEntries(*content, 8);
    return true;
}

uint64_t RunTable::Samples() const {
    uint64_t samples = 0;
    for (uint32_t index = 0; index < entries; ++index)
        samples += CountAt(index);
    return samples;
}

// Where the run behind the entry's starts, which itself starts at `before`.
RunTable::Start RunTable::Behind(const Start& before, uint32_t index) const {
    const uint32_t count = CountAt(index);
    return {before.sum + uint64_t{count} * ValueAt(index), before.sample + count};
}

// One walk over a long table when it is first needed. Without memory for the marks every search starts over.
bool RunTable::HaveMarks() {
    if (marksTried || entries <= kMarkStep)
        return marks != nullptr;
    marksTried = true;
    const size_t count = (entries + kMarkStep - 1) / kMarkStep;
    marks = static_cast<Start*>(ModuleAlloc(alignof(Start), count * sizeof(Start)));
    Start at = {};
    for (uint32_t index = 0; marks && index < entries; ++index) {
        if (index % kMarkStep == 0)
            marks[index / kMarkStep] = at;
        at = Behind(at, index);
    }
    return marks != nullptr;
}

// Moves the cursor to the last mark at or before the sample.
void RunTable::Restart(uint32_t sample) {
    entry = 0;
    start = {};
    if (!HaveMarks())
        return;
    const Start* first = marks;
    const auto later = [](uint32_t asked, const Start& mark) { return asked < mark.sample; };
    const Start* mark = std::upper_bound(first, first + (entries + kMarkStep - 1) / kMarkStep, sample, later) - 1;
    entry = static_cast<uint32_t>(mark - first) * kMarkStep;
    start = *mark;
}

bool RunTable::Find(uint32_t sample) {
    if (sample < start.sample)
        Restart(sample);
    for (uint32_t steps = 0; entry < entries; ++steps) {
        if (steps == kMarkStep && HaveMarks())
            Restart(sample);
        if (sample - start.sample < CountAt(entry))
            return true;
        start = Behind(start, entry++);
    }
    return false;
}

}  // namespace kivmp4
