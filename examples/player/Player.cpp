// One loop: wait for input or for the next picture's time, obey, show.
#include "Player.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace player {
namespace {

constexpr double kJump = 10;                // seconds, of the arrow keys
constexpr int kSlowest = 8, kFastest = 32;  // speeds of winding
constexpr double kPatience = 0.1;           // seconds that a picture may be missing before it counts
constexpr Uint64 kRedraw = 100;             // milliseconds

}  // namespace

Player::Player(const Options& chosen)
    : options(chosen), device(chosen.latency, chosen.bandwidth), demuxer(chosen.path, device, exchange) {}

// Ends the threads: first what they wait for, then themselves by their objects' destructors.
Player::~Player() {
    device.Abort();
    exchange.Send({Command::Finish, 0, 0, 0, serial + 1});
}

int Player::Run() {
    if (!Open())
        return 1;
    if (options.start > 0)
        Seek(options.start);
    else
        Send(Command::Play);
    const Uint64 began = SDL_GetTicks64();
    for (;;) {
        const Input input = controls.Wait(UntilNext(), *screen);
        if (input.action == Action::Quit)
            break;
        Obey(input);
        ShowDue();
        NoteStall();
        if (wind != 0 && pictureOver) {  // no key frame lies further on
            wind = 0;
            Pause(true);
        }
        if (redraw || SDL_GetTicks64() - drawn >= kRedraw) {
            screen->Draw(Describe());
            drawn = SDL_GetTicks64();
            redraw = false;
        }
        const double played = static_cast<double>(SDL_GetTicks64() - began) / 1000;
        if (options.headless > 0 && (played >= options.headless || (IsOver() && controls.IsDone())))
            break;
    }
    if (options.headless > 0) {
        report.Print();
        std::printf("position          %.3f s\n", position);
    }
    return 0;
}

bool Player::Open() {
    movie = demuxer.Opened();
    if (!movie.failure.empty()) {
        std::fprintf(stderr, "%s: %s\n", options.path.c_str(), movie.failure.c_str());
        return false;
    }
    if (!controls.SetPresses(options.presses)) {
        std::fprintf(stderr, "player: --press takes SECONDS:KEY or SECONDS:@FRACTION, apart by blanks\n");
        return false;
    }
    duration = static_cast<double>(movie.duration) / KIVMP4_TICKS_PER_SECOND;
    const CodecInfo picture = movie.picture.value_or(CodecInfo{});
    screen.emplace(options.path.c_str(), static_cast<int>(picture.width), static_cast<int>(picture.height));
    if (!screen->IsOpen()) {
        std::fprintf(stderr, "player: no window: %s\n", SDL_GetError());
        return false;
    }
    if (movie.sound) {
        sound.emplace(*movie.sound, exchange, clock, report);
        if (!sound->IsOpen()) {
            std::fprintf(stderr, "player: no sound: %s\n", SDL_GetError());
            sound.reset();
        }
    }
    if (movie.picture)
        pictures.emplace(picture, exchange);
    exchange.SetStreams(pictures.has_value(), sound.has_value());
    return pictures || sound;
}

void Player::Obey(const Input& input) {
    switch (input.action) {
        case Action::None: return;
        case Action::Quit:
        case Action::Redraw: break;
        case Action::Back: Seek(position - kJump); break;
        case Action::Forward: Seek(position + kJump); break;
        case Action::Point: Seek(input.fraction * duration); break;
        case Action::WindBack: Wind(-1); break;
        case Action::WindForward: Wind(1); break;
        case Action::PreviousKey:
        case Action::NextKey:
            if (movie.hasKeyFrames) {
                wind = 0;
                Pause(true);
                Send(Command::Step, input.action == Action::NextKey ? 1 : -1);
            }
            break;
        case Action::Pause:
            if (resting) {  // on a key frame, where playing goes on
                wind = 0;
                Pause(false);
                Send(Command::Play);
            } else if (IsOver()) {
                Pause(false);
                Seek(0);
            } else {
                Pause(!paused);
            }
            break;
    }
    redraw = true;
}

// All that belongs to earlier commands is void from here on.
void Player::Send(Command::Kind kind, int direction) {
    const auto ticks = static_cast<int64_t>(std::llround(position * KIVMP4_TICKS_PER_SECOND));
    resting = kind == Command::Step || kind == Command::Wind;
    begun = pictureOver = stalled = false;
    sent = SDL_GetTicks64();
    clock.Hold(position);
    ++serial;
    if (sound)
        sound->Begin(serial);  // before anything of this serial can come
    exchange.Send({kind, ticks, direction, std::abs(wind), serial});
    if (!pictures) {
        begun = true;
        sound->Start(position);
    }
}

void Player::Seek(double time) {
    wind = 0;
    if (resting)
        Pause(paused);
    position = std::clamp(time, 0.0, duration);
    Send(Command::Seek);
}

void Player::Pause(bool pause) {
    paused = pause;
    if (sound)
        sound->Pause(pause);
    if (pause)
        clock.Hold();
    else if (!sound && begun)
        clock.Run();
}

// The same key again winds twice as fast, up to the fastest.
void Player::Wind(int direction) {
    if (!movie.hasKeyFrames)
        return;
    const bool same = wind * direction > 0;
    wind = direction * (same && std::abs(wind) < kFastest ? std::abs(wind) * 2 : kSlowest);
    Pause(false);
    Send(Command::Wind, direction);
}

void Player::ShowDue() {
    while (pictures) {
        const Picture* next = pictures->Next(serial);
        if (!next || (begun && !resting && next->frame && (paused || next->time > clock.Now())))
            break;
        const bool late = begun && !resting && pictures->IsOvertaken(clock.Now());
        const Picture picture = pictures->Take();
        if (!picture.frame)
            pictureOver = true;
        else if (late)
            report.PictureDropped();
        else
            Show(picture);
    }
    if (!pictures || pictureOver)
        position = resting ? position : std::clamp(clock.Now(), position, std::max(position, duration));
}

void Player::Show(const Picture& picture) {
    const bool timed = begun && !resting;
    screen->Show(*picture.frame);
    position = picture.time;
    shownFor = picture.duration;
    stalled = false;
    if (!begun && !resting) {
        clock.Hold(position);
        if (sound)
            sound->Start(position);
        else if (!paused)
            clock.Run();
    }
    begun = true;
    screen->Draw(Describe());
    report.PictureShown(serial, picture.time, timed);
    drawn = SDL_GetTicks64();
    redraw = false;
}

// A stall of the sound counts itself, and stops the clock.
void Player::NoteStall() {
    if (stalled || !pictures || !begun || resting || paused || pictureOver || pictures->Next(serial))
        return;
    stalled = clock.Now() > position + shownFor + kPatience;
    if (stalled)
        report.Stalled();
}

bool Player::IsOver() {
    if (resting || !begun || (pictures && !pictureOver))
        return false;
    return !sound || sound->IsOver();
}

// Seconds until something is due.
double Player::UntilNext() {
    const Picture* next = pictures ? pictures->Next(serial) : nullptr;
    if (paused)
        return 0.02;
    if (!next || !next->frame || !begun || resting)
        return 0.005;
    return std::clamp(next->time - clock.Now(), 0.001, 0.02);
}

View Player::Describe() {
    const bool late = !begun && SDL_GetTicks64() - sent > 200;
    const bool over = IsOver();
    return {position, duration, paused || over, late || stalled || (sound && !paused && sound->IsStarved()), wind};
}

}  // namespace player
