// What the user wants, by key or mouse; or a list of key presses in the user's place.
#pragma once

#include <string>
#include <vector>

#include "Screen.h"

namespace player {

enum class Action {
    None,
    Redraw,
    Pause,
    Back,
    Forward,
    PreviousKey,
    NextKey,
    WindBack,
    WindForward,
    Point,  ///< to `fraction` of the film
    Quit
};

struct Input {
    Action action = Action::None;
    double fraction = 0;
};

/// Belongs to the thread of the window.
class Controls {
public:
    /// @param presses  "SECONDS:KEY" in order, apart by blanks, counted from the first Wait; keys by SDL's names
    ///                 ("space", "f", "."), or "@0.5" for a click in the middle of the bar
    /// @return false when it cannot be read
    bool SetPresses(const std::string& presses);
    /// Whether the list has been gone through.
    bool IsDone() const { return presses.empty(); }
    /// Waits for input, no longer than `seconds`.
    Input Wait(double seconds, const Screen& screen);

private:
    struct Press {
        double time;  // seconds
        SDL_Keycode key;
        double fraction;  // of the bar, when `key` is none
    };

    void SendPresses(const Screen& screen);

    std::vector<Press> presses;  // that are still to come
    Uint64 started = 0;          // ticks of SDL; 0 before the first Wait
};

}  // namespace player
