// What a player's `read` sees while the library opens, plays, seeks and winds, on a device of a given speed.
#include "play/Trace.h"

#include <algorithm>

#include "play/TrickMode.h"
#include "print/Time.h"

namespace kivmp4::cli {

namespace {

using Clock = std::chrono::steady_clock;
constexpr double kStall = 0.02;  // seconds: half of a picture's time
constexpr double kMegabyte = 1e6;

void Sleep(double seconds) {
    if (seconds > 0)
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

/// The file behind a device. The library's two threads read in turn; the player asks for the record while they may.
class TracedFile : public PlayerFile {
public:
    TracedFile(const inspect::File& from, const Device& behind)
        : PlayerFile(from), device(behind), begin(Clock::now()), caller(std::this_thread::get_id()) {}

    double Now() const { return std::chrono::duration<double>(Clock::now() - begin).count(); }
    void SetPhase(size_t number) {
        const std::lock_guard lock(mutex);
        phase = number;
    }
    std::vector<TracedRead> Reads() const {
        const std::lock_guard lock(mutex);
        return reads;
    }

protected:
    uint32_t Read(void* destination, int64_t offset, uint32_t count) override {
        const double start = Now();
        Sleep(device.latency / 1e3 + (device.bandwidth > 0 ? count / (device.bandwidth * kMegabyte) : 0));
        const uint32_t got = PlayerFile::Read(destination, offset, count);
        const std::lock_guard lock(mutex);
        const auto at = static_cast<uint64_t>(offset);
        const bool own = std::this_thread::get_id() == caller;
        const Cause cause = own ? Cause::Raw : at == aheadEnd ? Cause::Ahead : Cause::Jump;
        if (!own)
            aheadEnd = at + count;
        reads.push_back({phase, at, count, cause, start, Now() - start});
        return got;
    }

private:
    const Device device;
    const Clock::time_point begin;
    const std::thread::id caller;
    mutable std::mutex mutex;  // guards what follows
    size_t phase = 0;
    uint64_t aheadEnd = 0;  // of the last read of the library's thread
    std::vector<TracedRead> reads;
};

/// Plays and measures. A call into the library is timed as the player waits for it.
class Recorder {
public:
    Recorder(const Source& from, const Settings& with, const TraceOptions& wanted) : source(from), options(wanted) {
        auto traced = std::make_unique<TracedFile>(source.File(), options.device);
        file = traced.get();
        BeginPhase("open");
        const double start = file->Now();
        player.emplace(source, with, std::move(traced));
        Count(file->Now() - start);
        tracks = player->Enable();
        KivMp4InitUnit(player->Handle(), &unit);
    }

    TraceResult Run() {
        if (options.play > 0)
            Play();
        if (options.seeks > 0)
            Seek();
        if (options.steps > 0 && HasVideo())
            Wind();
        phases.back().duration = file->Now() - phaseStart;
        TraceResult result{phases, file->Reads()};
        player.reset();
        return result;
    }

private:
    void BeginPhase(const char* name) {
        if (!phases.empty())
            phases.back().duration = file->Now() - phaseStart;
        phaseStart = file->Now();
        file->SetPhase(phases.size());
        phases.push_back({name});
    }

    void Count(double seconds) {
        Phase& phase = phases.back();
        phase.calls++;
        phase.waited += seconds;
        phase.longest = std::max(phase.longest, seconds);
        if (seconds > kStall)
            phase.stalls++;
    }

    // Runs one call into the library. @return its answer
    template <typename Call>
    auto Timed(Call call) {
        const double start = file->Now();
        const auto answer = call();
        Count(file->Now() - start);
        return answer;
    }

    bool Next() {
        if (!Timed([&] { return player->Next(unit); }))
            return false;
        phases.back().delivered += static_cast<uint64_t>(unit.size);
        return true;
    }

    bool HasVideo() const {
        return std::any_of(tracks.begin(), tracks.end(), [&](uint32_t track) { return player->IsVideo(track); });
    }

    void Play() {
        BeginPhase("play");
        const auto end = static_cast<int64_t>(options.play * static_cast<double>(kTicksPerSecond));
        while (Next() && unit.dts < end) {
            if (options.decode > 0)
                Sleep(unit.size / (options.decode * kMegabyte));
        }
    }

    // A seek is over when the first unit after it has come.
    void Seek() {
        BeginPhase("seek");
        for (uint32_t number = 1; number <= options.seeks; number++) {
            KivMp4Rewind(player->Handle());
            const int64_t target = player->Duration() / (options.seeks + 1) * number;
            const double start = file->Now();
            if (KivMp4JumpPTS(player->Handle(), target) != KIVMP4_OK || !player->Next(unit))
                continue;
            Count(file->Now() - start);
            phases.back().delivered += static_cast<uint64_t>(unit.size);
        }
    }

    void Wind() {
        BeginPhase("wind");
        KivMp4Rewind(player->Handle());
        const TrickMode trickMode(player->Handle());
        for (uint32_t step = 0; step < options.steps; step++) {
            if (!Timed([&] { return player->Step(unit, true); }))
                return;
            phases.back().delivered += static_cast<uint64_t>(unit.size);
        }
    }

    const Source& source;
    const TraceOptions options;
    std::vector<Phase> phases;
    double phaseStart = 0;
    TracedFile* file = nullptr;  // borrowed from the player
    std::optional<Player> player;
    std::vector<uint32_t> tracks;
    AccessUnit unit{};
};

}  // namespace

const char* Name(Cause cause) {
    switch (cause) {
        case Cause::Ahead: return "ahead";
        case Cause::Jump: return "jump";
        default: return "raw";
    }
}

Totals TotalsOf(const TraceResult& trace, size_t phase) {
    Totals totals;
    for (const TracedRead& read : trace.reads) {
        if (read.phase != phase)
            continue;
        totals.reads++;
        totals.bytes += read.size;
        totals.byCause[static_cast<size_t>(read.cause)]++;
    }
    return totals;
}

TraceResult Record(const Source& source, const Settings& settings, const TraceOptions& options) {
    return Recorder(source, settings, options).Run();
}

}  // namespace kivmp4::cli
