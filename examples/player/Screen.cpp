// Draws with SDL's renderer; pictures that are not 4:2:0 are converted first.
#include "Screen.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "Glyphs.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace player {
namespace {

constexpr int kStrip = 48, kMargin = 16;  // pixels
constexpr int kDot = 2;                   // of a character
constexpr int kAdvance = 6 * kDot, kTextHeight = 7 * kDot;
constexpr int kStateWidth = 76;           // the symbol, and beside it the speed
constexpr int kTimeWidth = 9 * kAdvance;  // "0:00:00.0"
constexpr int kLeastWidth = 480, kMostWidth = 1280, kMostHeight = 720;
constexpr SDL_Color kBack{22, 24, 28, 255}, kTrough{66, 71, 80, 255}, kDone{84, 160, 255, 255},
    kInk{235, 238, 243, 255};

void FormatTime(double seconds, bool tenths, char (&text)[32]) {
    const long long all = static_cast<long long>(std::max(seconds, 0.0) * 10 + 1e-6), whole = all / 10;
    const int minutes = static_cast<int>(whole / 60 % 60), rest = static_cast<int>(whole % 60);
    std::snprintf(text, sizeof text, tenths ? "%lld:%02d:%02d.%d" : "%lld:%02d:%02d", whole / 3600, minutes, rest,
                  static_cast<int>(all % 10));
}

void SetColor(SDL_Renderer* renderer, SDL_Color color) {
    SDL_SetRenderDrawColor(renderer, color.r, color.g, color.b, color.a);
}

}  // namespace

Screen::Screen(const char* title, int pictureWidth, int pictureHeight)
    : hasPicture(pictureWidth > 0 && pictureHeight > 0) {
    double scale = 1;
    if (hasPicture)
        scale = std::min({1.0, double{kMostWidth} / pictureWidth, double{kMostHeight} / pictureHeight});
    window.reset(SDL_CreateWindow(title, SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                  std::max(kLeastWidth, static_cast<int>(pictureWidth * scale)),
                                  static_cast<int>(pictureHeight * scale) + kStrip, SDL_WINDOW_RESIZABLE));
    if (!window)
        return;
    SDL_SetWindowMinimumSize(window.get(), kLeastWidth, kStrip);
    SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, "linear");
    renderer.reset(SDL_CreateRenderer(window.get(), -1, 0));
    if (renderer && hasPicture)
        MakeTexture(pictureWidth, pictureHeight);
}

Screen::~Screen() { sws_freeContext(scaler); }

bool Screen::MakeTexture(int newWidth, int newHeight) {
    shown = false;
    texture.reset(
        SDL_CreateTexture(renderer.get(), SDL_PIXELFORMAT_IYUV, SDL_TEXTUREACCESS_STREAMING, newWidth, newHeight));
    width = newWidth;
    height = newHeight;
    return texture != nullptr;
}

void Screen::Show(const AVFrame& frame) {
    if ((frame.width != width || frame.height != height) && !MakeTexture(frame.width, frame.height))
        return;
    const AVFrame* source = &frame;
    if (frame.format != AV_PIX_FMT_YUV420P && frame.format != AV_PIX_FMT_YUVJ420P) {
        scaler = sws_getCachedContext(scaler, width, height, static_cast<AVPixelFormat>(frame.format), width, height,
                                      AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr);
        planar.reset(av_frame_alloc());
        if (!scaler || !planar)
            return;
        planar->format = AV_PIX_FMT_YUV420P;
        planar->width = width;
        planar->height = height;
        if (sws_scale_frame(scaler, planar.get(), &frame) < 0)
            return;
        source = planar.get();
    }
    const double pixel = frame.sample_aspect_ratio.num > 0 ? av_q2d(frame.sample_aspect_ratio) : 1;
    aspect = pixel * width / height;
    shown = SDL_UpdateYUVTexture(texture.get(), nullptr, source->data[0], source->linesize[0], source->data[1],
                                 source->linesize[1], source->data[2], source->linesize[2]) == 0;
}

SDL_Rect Screen::Strip() const {
    int w = 0, h = 0;
    SDL_GetRendererOutputSize(renderer.get(), &w, &h);
    return {0, h - kStrip, w, kStrip};
}

SDL_Rect Screen::Bar() const {
    const SDL_Rect strip = Strip();
    const int left = kMargin + kStateWidth + kTimeWidth + kMargin, right = kMargin + kTimeWidth;
    return {left, strip.y + kStrip / 2 - 3, std::max(strip.w - left - right, 1), 6};
}

double Screen::OnBar(int x, int y) const {
    const SDL_Rect bar = Bar();
    if (y < Strip().y || x < bar.x - kMargin / 2 || x > bar.x + bar.w + kMargin / 2)
        return -1;
    return std::clamp(static_cast<double>(x - bar.x) / bar.w, 0.0, 1.0);
}

SDL_Point Screen::AtBar(double fraction) const {
    const SDL_Rect bar = Bar();
    return {bar.x + static_cast<int>(fraction * bar.w), bar.y};
}

void Screen::Draw(const View& view) {
    SDL_SetRenderDrawColor(renderer.get(), 0, 0, 0, 255);
    SDL_RenderClear(renderer.get());
    if (shown)
        DrawPicture();
    const SDL_Rect strip = Strip();
    SetColor(renderer.get(), kBack);
    SDL_RenderFillRect(renderer.get(), &strip);
    DrawState(view);

    const int textY = strip.y + (kStrip - kTextHeight) / 2;
    char text[32];
    FormatTime(view.position, true, text);
    DrawText(text, kMargin + kStateWidth, textY);
    FormatTime(view.duration, false, text);
    DrawText(text, strip.w - kMargin - static_cast<int>(std::strlen(text)) * kAdvance + kDot, textY);

    const SDL_Rect bar = Bar();
    SDL_Rect done = bar;
    done.w = view.duration > 0 ? static_cast<int>(bar.w * std::clamp(view.position / view.duration, 0.0, 1.0)) : 0;
    SetColor(renderer.get(), kTrough);
    SDL_RenderFillRect(renderer.get(), &bar);
    SetColor(renderer.get(), kDone);
    SDL_RenderFillRect(renderer.get(), &done);
    SetColor(renderer.get(), kInk);
    DrawDisc(done.x + done.w, bar.y + bar.h / 2, 8);
    SDL_RenderPresent(renderer.get());
}

// As large as fits over the strip, in its own shape.
void Screen::DrawPicture() {
    const SDL_Rect strip = Strip();
    SDL_Rect target{0, 0, strip.w, strip.y};
    if (target.w > target.h * aspect)
        target.w = static_cast<int>(target.h * aspect);
    else
        target.h = static_cast<int>(target.w / aspect);
    target.x = (strip.w - target.w) / 2;
    target.y = (strip.y - target.h) / 2;
    SDL_RenderCopy(renderer.get(), texture.get(), nullptr, &target);
}

void Screen::DrawState(const View& view) {
    constexpr int kSize = 16;
    const int x = kMargin, y = Strip().y + (kStrip - kSize) / 2;
    SetColor(renderer.get(), kInk);
    if (view.wind != 0) {
        const int towards = view.wind > 0 ? 1 : -1, from = view.wind > 0 ? x : x + kSize;
        DrawTriangle(from, y, towards * kSize / 2, kSize);
        DrawTriangle(from + towards * kSize / 2, y, towards * kSize / 2, kSize);
        char text[32];
        std::snprintf(text, sizeof text, "%dx", std::abs(view.wind));
        DrawText(text, x + kSize + 8, y + (kSize - kTextHeight) / 2);
    } else if (view.waiting) {
        for (int dot = 0; dot < 3; ++dot)
            DrawDisc(x + 3 + dot * 10, y + kSize / 2, 3);
    } else if (view.paused) {
        for (const int offset : {1, 9}) {
            const SDL_Rect stroke{x + offset, y, 5, kSize};
            SDL_RenderFillRect(renderer.get(), &stroke);
        }
    } else {
        DrawTriangle(x, y, kSize, kSize);
    }
}

void Screen::DrawText(const char* text, int x, int y) {
    SetColor(renderer.get(), kInk);
    for (; *text; ++text, x += kAdvance) {
        for (const Glyph& glyph : kGlyphs) {
            for (int row = 0; glyph.character == *text && row < 7; ++row) {
                for (int column = 0; column < 5; ++column) {
                    const SDL_Rect dot{x + column * kDot, y + row * kDot, kDot, kDot};
                    if (glyph.rows[row] >> (4 - column) & 1)
                        SDL_RenderFillRect(renderer.get(), &dot);
                }
            }
        }
    }
}

// Upright on x, its point `width` to the right, or to the left below 0.
void Screen::DrawTriangle(int x, int y, int triangleWidth, int triangleHeight) {
    for (int row = 0; row < triangleHeight; ++row) {
        const int fromEdge = std::min(row, triangleHeight - 1 - row) * 2;
        SDL_RenderDrawLine(renderer.get(), x, y + row, x + triangleWidth * fromEdge / triangleHeight, y + row);
    }
}

void Screen::DrawDisc(int x, int y, int radius) {
    for (int row = -radius; row <= radius; ++row) {
        int half = 0;
        while ((half + 1) * (half + 1) + row * row <= radius * radius)
            ++half;
        SDL_RenderDrawLine(renderer.get(), x - half, y + row, x + half, y + row);
    }
}

}  // namespace player
