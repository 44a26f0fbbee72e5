// Holds the command's own reader against the module, unit by unit, over the same bytes.
#pragma once

#include "check/Check.h"
#include "inspect/Facts.h"
#include "support/Session.h"

namespace kivmp4::test {

/// The tracks that the reader takes for playable, each with its walk, merged in the order in which samples lie.
class MergedSamples {
public:
    explicit MergedSamples(const inspect::Movie& movie) {
        for (const inspect::Track& track : movie.tracks) {
            if (track.refusal.empty())
                lanes.push_back({&track, inspect::ListSamples(track)});
        }
    }
    struct Lane {
        const inspect::Track* track;
        std::vector<inspect::Sample> samples;
        size_t next = 0;
    };
    /// @return index of the lane whose sample comes first, or the number of lanes
    size_t Choose() const {
        size_t best = lanes.size();
        for (size_t i = 0; i < lanes.size(); i++) {
            const Lane& lane = lanes[i];
            if (lane.track->Played() && lane.next < lane.samples.size() &&
                (best == lanes.size() || lane.samples[lane.next].offset < lanes[best].samples[lanes[best].next].offset))
                best = i;
        }
        return best;
    }
    std::vector<Lane> lanes;
};

/// Of a file with these bytes.
inline std::vector<check::Finding> FindingsIn(const Bytes& content, check::Extent extent = check::Extent::Units) {
    const inspect::File file(content);
    const inspect::Movie movie(file);
    return check::Check(movie, extent);
}

/// What delivery makes of the sample's bytes, but for the configuration in front of the first one.
inline Bytes Payload(const inspect::File& file, const inspect::Track& track, const inspect::Sample& sample) {
    const Bytes bytes = file.ReadBytes(sample.offset, sample.size, sample.size);
    const uint32_t lengthSize = track.Entry()->type == "avc1" ? track.Entry()->nalLengthSize : 0;
    if (!lengthSize)
        return bytes;
    Put out;
    inspect::Fields fields(bytes);
    while (fields.Left())
        out.U32(1).Raw(fields.Take(static_cast<size_t>(fields.Unsigned(static_cast<int>(lengthSize)))));
    return out;
}

/// The module multiplies numbers of single precision: 24 bits of a time are right.
inline bool IsNear(int64_t got, int64_t wanted) { return std::abs(got - wanted) <= 2 + (std::abs(wanted) >> 22); }

/// @return the number of units compared
inline size_t ExpectAgreement(const Bytes& content) {
    const inspect::File file(content);
    const inspect::Movie movie(file);
    MergedSamples merged(movie);
    Session session(content, size_t{16} << 20);
    EXPECT_TRUE(session.Start());
    EXPECT_EQ(session.tracks, merged.lanes.size());
    size_t count = 0;
    while (KivMp4GetNextUnit(session.demux, &session.unit) == 0) {
        const AccessUnit& unit = session.unit;
        const size_t at = merged.Choose();
        SCOPED_TRACE("unit " + std::to_string(count++));
        EXPECT_EQ(unit.trackIndex, at);
        if (at == merged.lanes.size() || unit.trackIndex != at)
            return count;
        MergedSamples::Lane& lane = merged.lanes[at];
        const inspect::Sample& sample = lane.samples[lane.next++];
        const uint32_t scale = lane.track->timescale;
        const int64_t delay = inspect::AppliedDelay(movie, *lane.track);
        EXPECT_PRED2(IsNear, unit.dts, inspect::ToTicks(sample.dts, scale) + delay);
        EXPECT_PRED2(IsNear, unit.pts, inspect::ToTicks(sample.cts, scale) + delay);
        EXPECT_PRED2(IsNear, unit.duration, inspect::ToTicks(sample.duration, scale));
        EXPECT_EQ(unit.isSync != 0, sample.key);
        Bytes bytes(unit.payload, unit.payload + unit.size);
        const Bytes wanted = Payload(file, *lane.track, sample);
        // Parameter sets or a configuration precede the first picture.
        if (sample.number == 0 && unit.isVideo && bytes.size() > wanted.size())
            bytes.erase(bytes.begin(), bytes.end() - static_cast<std::ptrdiff_t>(wanted.size()));
        EXPECT_TRUE(bytes == wanted) << "payload of sample " << sample.number << " at " << sample.offset;
        if (::testing::Test::HasFailure())
            return count;
    }
    EXPECT_EQ(merged.Choose(), merged.lanes.size()) << "the module ends before the reader";
    return count;
}

}  // namespace kivmp4::test
