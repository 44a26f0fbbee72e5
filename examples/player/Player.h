// The window's thread: turns input into commands, and shows each picture when the clock says so.
#pragma once

#include <optional>
#include <string>

#include "Clock.h"
#include "Controls.h"
#include "Demuxer.h"
#include "Exchange.h"
#include "Pictures.h"
#include "Report.h"
#include "Screen.h"
#include "Sound.h"

namespace player {

struct Options {
    std::string path;
    double start = 0;      // seconds
    double latency = 0;    // seconds a request
    double bandwidth = 0;  // bytes a second, 0 without limit
    double headless = 0;   // seconds to play without a window, 0 with one
    std::string presses;   // see Controls
};

class Player {
public:
    explicit Player(const Options& options);
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    /// Plays until the user ends it; without a window until the film or the time is over. @return exit code
    int Run();

private:
    bool Open();
    void Obey(const Input& input);
    void Send(Command::Kind kind, int direction = 0);
    void Seek(double time);
    void Pause(bool pause);
    void Wind(int direction);
    void ShowDue();
    void Show(const Picture& picture);
    void NoteStall();
    bool IsOver();
    double UntilNext();
    View Describe();

    const Options options;
    Device device;
    Exchange exchange;
    Clock clock;
    Report report;
    Controls controls;
    Demuxer demuxer;  // after what its thread uses
    Movie movie;
    double duration = 0;
    std::optional<Screen> screen;
    std::optional<Sound> sound;
    std::optional<Pictures> pictures;

    // What the window's thread alone knows.
    uint32_t serial = 0;  // of the newest command
    double position = 0;  // seconds: of the picture shown, or where a command leads
    double shownFor = 0;  // duration of the picture shown
    bool paused = false;
    bool resting = false;      // on a single key frame
    int wind = 0;              // speed, below 0 backward
    bool begun = false;        // something of the newest command is on the screen
    bool pictureOver = false;  // the newest command brings no more pictures
    bool stalled = false;      // the picture shown stands for too long
    bool redraw = true;
    Uint64 drawn = 0, sent = 0;  // when: ticks of SDL
};

}  // namespace player
