// Playing, seeking and winding with the module's functions.
#include "Demuxer.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

namespace player {
namespace {

constexpr size_t kHeapSize = 16 << 20;  // room for two blocks of the largest unit
constexpr int64_t kSecond = KIVMP4_TICKS_PER_SECOND;
constexpr std::chrono::milliseconds kStepTime(125);  // between two pictures of winding
constexpr std::chrono::milliseconds kLongestStep(500);
constexpr int64_t kStepTicks = kSecond / 8;  // kStepTime in ticks
constexpr int64_t kFromStart = std::numeric_limits<int64_t>::min();

// malloc is aligned for more than the 8 bytes that are asked for at most.
void* Allocate(void*, size_t, size_t size) { return std::malloc(size); }
void Free(void*, void* block) { std::free(block); }

}  // namespace

Demuxer::Demuxer(std::string file, Device& from, Exchange& to)
    : path(std::move(file)), device(from), exchange(to), heap(kHeapSize), memory{nullptr, Allocate, Free} {
    thread = std::thread([this] { Run(); });
}

void Demuxer::Run() {
    const Movie movie = Open();
    opened.set_value(movie);
    Command command;
    do {
        const Exchange::Need need = mode == Mode::Playing   ? Exchange::Need::Room
                                    : mode == Mode::Winding ? Exchange::Need::Taken
                                                            : Exchange::Need::Nothing;
        if (!exchange.Wait(command, need, nextStep))
            Advance();
        else if (command.kind != Command::Finish && movie.failure.empty())
            Obey(command);
    } while (command.kind != Command::Finish);
    KivMp4Destroy(demux);
}

Movie Demuxer::Open() {
    Movie movie;
    uint32_t trackCount = 0;
    int64_t duration = 0;
    demux = KivMp4Create(path.c_str(), device.Functions(), &memory, heap.data(), heap.size(), 0, KIVMP4_LOG_NONE);
    if (!demux)
        movie.failure = "cannot open";
    else if (KivMp4Open(demux, &trackCount, &duration) != KIVMP4_OK)
        movie.failure = "not a usable MP4 file";
    else if (!FindTracks(trackCount, movie))
        movie.failure = "holds neither H.264 or MPEG-4 pictures nor AAC sound";
    if (!movie.failure.empty())
        return movie;
    movie.duration = static_cast<int64_t>(KivMp4TimeToTicks(static_cast<uint64_t>(duration)));
    KivMp4InitUnit(demux, &unit);
    // Going back from the first sample finds the first key frame, if the track has a table of them at all.
    movie.hasKeyFrames = hasKeyFrames = pictureTrack >= 0 && KivMp4GetPrevSyncUnit(demux, &unit) == KIVMP4_OK;
    KivMp4Rewind(demux);
    exchange.SetStreams(pictureTrack >= 0, soundTrack >= 0);
    return movie;
}

bool Demuxer::FindTracks(uint32_t trackCount, Movie& movie) {
    for (int32_t track = 0; track < static_cast<int32_t>(trackCount); ++track) {
        CodecInfo info{};
        if (KivMp4GetTrackInfo(demux, track, &info) != KIVMP4_OK)
            continue;
        if (info.kind == KIVMP4_KIND_VIDEO && pictureTrack < 0) {
            pictureTrack = track;
            movie.picture = info;
        } else if (info.kind == KIVMP4_KIND_AUDIO && info.subtype == KIVMP4_AUDIO_AAC && soundTrack < 0) {
            soundTrack = track;
            movie.sound = info;
        } else {
            continue;
        }
        KivMp4EnableTrack(demux, track, 1);
    }
    return pictureTrack >= 0 || soundTrack >= 0;
}

void Demuxer::Obey(const Command& command) {
    const bool onKeyFrame = trick;  // the module stands on the key frame that was shown last
    serial = command.serial;
    direction = command.direction;
    speed = command.speed;
    switch (command.kind) {
        case Command::Play:
            EndTrick();
            showFrom = kFromStart;
            mode = Mode::Playing;
            break;
        case Command::Seek:
            BeginTrick();  // what looking for the key frame reads ahead would be thrown away
            Locate(command.time);
            EndTrick();
            showFrom = command.time;
            mode = Mode::Playing;
            break;
        case Command::Step:
        case Command::Wind:
            BeginTrick();
            if (!onKeyFrame)
                Locate(command.time);
            windFrom = unit.pts;
            nextStep = {};
            mode = command.kind == Command::Wind ? Mode::Winding : Mode::Resting;
            if (command.kind == Command::Step) {
                // The key frame before a picture within its group is the one that was located.
                if (direction > 0 || onKeyFrame || unit.pts >= command.time)
                    StepKey();
                Deliver(Stream::Picture, true);  // where there is no other, the one that the module stands on
            }
            break;
        case Command::Finish: break;
    }
}

void Demuxer::Advance() {
    if (mode == Mode::Winding)
        WindOn();
    else
        DeliverNext();
}

// Damage ends the film as its end does: a unit that cannot be read would be tried for ever.
void Demuxer::DeliverNext() {
    if (KivMp4GetNextUnit(demux, &unit) != KIVMP4_OK) {
        DeliverEnd();
        return;
    }
    // Where no table tells the key frames each picture is one, so that those before the goal need not be decoded.
    const bool needed = IsPicture() && hasKeyFrames;
    if (needed || unit.pts + unit.duration > showFrom)
        Deliver(IsPicture() ? Stream::Picture : Stream::Sound, false);
}

// Shows the next key frame that lies far enough on for the speed, or the last one.
void Demuxer::WindOn() {
    const int64_t goal = windFrom + direction * speed * kStepTicks;
    bool found = true;
    do {
        found = StepKey();
    } while (found && (direction > 0 ? unit.pts < goal : unit.pts > goal));
    if (found || unit.pts != windFrom)
        Deliver(Stream::Picture, true);
    if (!found)
        DeliverEnd();
    // Key frames that lie far apart are shown for longer, as the speed has it, but not so long that winding seems to stand.
    const std::chrono::milliseconds due(std::abs(unit.pts - windFrom) * 1000 / kSecond / speed);
    nextStep = std::chrono::steady_clock::now() + std::clamp(due, kStepTime, kLongestStep);
    windFrom = unit.pts;
}

// Fetches the next key frame in `direction`. @return false when there is none
bool Demuxer::StepKey() {
    const int64_t before = unit.pts;
    if (direction > 0)
        return KivMp4GetNextSyncUnit(demux, &unit) == KIVMP4_OK;
    // From the first key frame on it brings the first one again.
    return KivMp4GetPrevSyncUnit(demux, &unit) == KIVMP4_OK && unit.pts < before;
}

// A track that is not there must not be enabled either: every number below 0 means track 0. Without pictures the sound
// leads, and stays enabled.
void Demuxer::EnableSound(bool enable) {
    if (soundTrack >= 0 && pictureTrack >= 0)
        KivMp4EnableTrack(demux, soundTrack, enable ? 1 : 0);
}

void Demuxer::BeginTrick() {
    if (trick)
        return;
    KivMp4FlushFileReader(demux);
    EnableSound(false);
    trick = true;
}

void Demuxer::EndTrick() {
    if (!trick)
        return;
    EnableSound(true);
    KivMp4ResumeFileReader(demux);
    trick = false;
}

// Moves to the last key frame that is shown at or before `time`, and fetches it. Where there is none: to the start.
void Demuxer::Locate(int64_t time) {
    // The jump may land after `time`, on the nearest key frame, or after the last one on a sample that is none. So it
    // is tried from ever further back until it lands well.
    for (int64_t back = 0; hasKeyFrames && back < time; back = back == 0 ? kSecond : back * 2) {
        if (!JumpToKeyBefore(time - back, time))
            continue;
        int64_t reached = unit.pts;
        while (KivMp4GetNextSyncUnit(demux, &unit) == KIVMP4_OK && unit.pts <= time)
            reached = unit.pts;
        if (unit.pts > reached)
            KivMp4GetPrevSyncUnit(demux, &unit);
        return;
    }
    EnableSound(true);  // a disabled track would stay where it is
    KivMp4Rewind(demux);
    if (pictureTrack < 0) {
        KivMp4JumpPTS(demux, time);
        return;
    }
    EnableSound(false);
    if (hasKeyFrames)
        KivMp4GetPrevSyncUnit(demux, &unit);
}

// @return true when a jump to `at` lands on a key frame at or before `time`; the module then stands on it
bool Demuxer::JumpToKeyBefore(int64_t at, int64_t time) {
    if (KivMp4JumpPTS(demux, at) != KIVMP4_OK) {
        KivMp4Rewind(demux);  // a track at its end jumps nowhere
        if (KivMp4JumpPTS(demux, at) != KIVMP4_OK)
            return false;
    }
    // Only the unit itself tells where the jump has landed; fetching it moves on, so jump once more.
    return KivMp4GetNextUnit(demux, &unit) == KIVMP4_OK && unit.isSync && unit.pts <= time &&
           KivMp4JumpPTS(demux, at) == KIVMP4_OK;
}

void Demuxer::Deliver(Stream stream, bool still) {
    Packet packet;
    packet.bytes.assign(unit.payload, unit.payload + unit.size);
    packet.pts = unit.pts;
    packet.dts = unit.dts;
    packet.duration = unit.duration;
    packet.showFrom = still ? kFromStart : showFrom;
    packet.serial = serial;
    packet.still = still;
    exchange.Push(stream, std::move(packet));
}

void Demuxer::DeliverEnd() {
    mode = Mode::Resting;
    for (const Stream stream : {Stream::Picture, Stream::Sound}) {
        Packet packet;
        packet.showFrom = showFrom;  // for what the decoders still hold
        packet.serial = serial;
        packet.end = true;
        exchange.Push(stream, std::move(packet));
    }
}

}  // namespace player
