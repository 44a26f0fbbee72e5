// The window: the picture, and below it a strip with the state, the time and a bar.
#pragma once

#include <SDL.h>

#include <memory>

#include "Decoder.h"

struct SwsContext;

namespace player {

/// What the strip shows. Times in seconds.
struct View {
    double position = 0, duration = 0;
    bool paused = false;
    bool waiting = false;  // for data
    int wind = 0;          // speed of winding, below 0 backward
};

/// Belongs to the thread that has initialised SDL's video.
class Screen {
public:
    /// @param width, height  of the picture in pixels; 0 without one
    Screen(const char* title, int width, int height);
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    bool IsOpen() const { return texture || (renderer && !hasPicture); }
    /// Takes over the picture that Draw shows from now on.
    void Show(const AVFrame& frame);
    void Draw(const View& view);
    /// @return how far along the bar the point lies, 0 to 1, or less than 0 outside the strip
    double OnBar(int x, int y) const;
    /// The reverse: where on the bar.
    SDL_Point AtBar(double fraction) const;

private:
    struct EndWindow {
        void operator()(SDL_Window* window) const { SDL_DestroyWindow(window); }
        void operator()(SDL_Renderer* renderer) const { SDL_DestroyRenderer(renderer); }
        void operator()(SDL_Texture* texture) const { SDL_DestroyTexture(texture); }
    };

    bool MakeTexture(int width, int height);
    SDL_Rect Strip() const;
    SDL_Rect Bar() const;
    void DrawPicture();
    void DrawState(const View& view);
    void DrawText(const char* text, int x, int y);
    void DrawTriangle(int x, int y, int width, int height);
    void DrawDisc(int x, int y, int radius);

    std::unique_ptr<SDL_Window, EndWindow> window;
    std::unique_ptr<SDL_Renderer, EndWindow> renderer;
    std::unique_ptr<SDL_Texture, EndWindow> texture;
    SwsContext* scaler = nullptr;  // owned; only for pictures that are not 4:2:0
    Frame planar;                  // what it writes to
    const bool hasPicture;
    int width = 0, height = 0;  // of the texture
    double aspect = 0;          // of the picture as it is shown
    bool shown = false;         // the texture holds a picture
};

}  // namespace player
