// Presses from the list go into SDL's queue, so that they take the way that the user's take.
#include "Controls.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace player {
namespace {

Action ActionOf(SDL_Keycode key) {
    switch (key) {
        case SDLK_SPACE: return Action::Pause;
        case SDLK_LEFT: return Action::Back;
        case SDLK_RIGHT: return Action::Forward;
        case SDLK_COMMA: return Action::PreviousKey;
        case SDLK_PERIOD: return Action::NextKey;
        case SDLK_r: return Action::WindBack;
        case SDLK_f: return Action::WindForward;
        case SDLK_q:
        case SDLK_ESCAPE: return Action::Quit;
        default: return Action::None;
    }
}

Input InputOf(const SDL_Event& event, const Screen& screen) {
    switch (event.type) {
        case SDL_QUIT: return {Action::Quit};
        case SDL_WINDOWEVENT: return {Action::Redraw};
        case SDL_KEYDOWN: return {ActionOf(event.key.keysym.sym)};
        case SDL_MOUSEBUTTONDOWN: {
            const double fraction = screen.OnBar(event.button.x, event.button.y);
            return {fraction < 0 ? Action::None : Action::Point, fraction};
        }
        case SDL_MOUSEMOTION: {
            const double fraction =
                event.motion.state & SDL_BUTTON_LMASK ? screen.OnBar(event.motion.x, event.motion.y) : -1;
            return {fraction < 0 ? Action::None : Action::Point, fraction};
        }
        default: return {};
    }
}

}  // namespace

bool Controls::SetPresses(const std::string& text) {
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const size_t colon = word.find(':');
        if (colon == std::string::npos)
            return false;
        const std::string name = word.substr(colon + 1);
        Press press{std::atof(word.c_str()), SDLK_UNKNOWN, 0};
        if (name.rfind('@', 0) == 0)
            press.fraction = std::atof(name.c_str() + 1);
        else if ((press.key = SDL_GetKeyFromName(name.c_str())) == SDLK_UNKNOWN)
            return false;
        presses.push_back(press);
    }
    return true;
}

Input Controls::Wait(double seconds, const Screen& screen) {
    if (started == 0)
        started = SDL_GetTicks64();
    SendPresses(screen);
    SDL_Event event;
    if (!SDL_WaitEventTimeout(&event, std::clamp(static_cast<int>(seconds * 1000), 1, 100)))
        return {};
    return InputOf(event, screen);
}

void Controls::SendPresses(const Screen& screen) {
    const double now = static_cast<double>(SDL_GetTicks64() - started) / 1000;
    while (!presses.empty() && presses.front().time <= now) {
        const Press press = presses.front();
        presses.erase(presses.begin());
        SDL_Event event{};
        if (press.key == SDLK_UNKNOWN) {
            const SDL_Point point = screen.AtBar(press.fraction);
            event.type = SDL_MOUSEBUTTONDOWN;
            event.button.x = point.x;
            event.button.y = point.y;
        } else {
            event.type = SDL_KEYDOWN;
            event.key.keysym.sym = press.key;
        }
        SDL_PushEvent(&event);
    }
}

}  // namespace player
