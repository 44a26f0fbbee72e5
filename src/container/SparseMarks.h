// Marks along a run-length table, so that random access need not walk it from its beginning.
#pragma once

#include <algorithm>
#include <cstdint>

#include "support/ModuleHeap.h"

namespace kivmp4 {

/// The first sample of every 64th entry of a table whose entries stand for consecutive samples. Made by the first lookup
/// that would start over; a table that is short, forged or for which there is no memory has none and is walked.
class SparseMarks {
public:
    ~SparseMarks() { ModuleFree(marks); }

    /// Where to start a walk that looks for the entry holding `sample`: entry 0, or a later one that begins at or before
    /// the sample. Everything before it ends at or before the sample, so the walk stops where one from entry 0 would.
    /// @param samplesOf  how many samples an entry stands for, by its index; called for each entry once
    template <typename SamplesOf>
    uint32_t StartFor(int32_t sample, uint32_t entries, int32_t& firstSample, SamplesOf samplesOf) {
        firstSample = 0;
        if (!Exist(entries, samplesOf))
            return 0;
        const uint32_t behind = static_cast<uint32_t>(std::upper_bound(marks, marks + count, sample) - marks);
        if (behind == 0)
            return 0;
        firstSample = marks[behind - 1];
        return (behind - 1) * kStep;
    }

    /// Makes the marks if that was not tried yet. @return whether there are any
    template <typename SamplesOf>
    bool Exist(uint32_t entries, SamplesOf samplesOf) {
        if (!tried)
            Make(entries, samplesOf);
        return marks != nullptr;
    }

    static constexpr uint32_t kStep = 64;

private:
    template <typename SamplesOf>
    void Make(uint32_t entries, SamplesOf samplesOf) {
        tried = true;
        count = (entries + kStep - 1) / kStep;
        if (count < 2)
            return;
        marks = static_cast<int32_t*>(ModuleAlloc(alignof(int32_t), size_t{count} * sizeof(int32_t)));
        int64_t first = 0;
        for (uint32_t entry = 0; marks && entry < entries; ++entry) {
            if (entry % kStep == 0)
                marks[entry / kStep] = static_cast<int32_t>(first);
            first += samplesOf(entry);
            if (first > INT32_MAX) {  // sample numbers would wrap: where the walk stops depends on where it starts
                ModuleFree(marks);
                marks = nullptr;
            }
        }
    }

    int32_t* marks = nullptr;  // owned; ascending
    uint32_t count = 0;
    bool tried = false;
};

}  // namespace kivmp4
