#include "window.h"

#include "viewer.h"

#include <SDL.h>

#include <cstdlib>
#include <iostream>
#include <memory>

namespace preview {
namespace {

const char* const TITLE = "bootlume preview: q quit, p picture, l language";

struct Deleter {
    void operator()(SDL_Window* window) const { SDL_DestroyWindow(window); }
    void operator()(SDL_Renderer* renderer) const { SDL_DestroyRenderer(renderer); }
    void operator()(SDL_Texture* texture) const { SDL_DestroyTexture(texture); }
};

/// The library, while it is in use.
struct Video {
    Video() {
        SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
        SDL_SetHint(SDL_HINT_VIDEO_ALLOW_SCREENSAVER, "1");
        // Of the library's ways to draw only those that a person can look at.
        if (SDL_getenv("SDL_VIDEODRIVER") == nullptr)
            SDL_SetHint(SDL_HINT_VIDEODRIVER, "x11,wayland");
        ready = SDL_Init(SDL_INIT_VIDEO) == 0;
    }
    ~Video() { SDL_Quit(); }
    Video(const Video&) = delete;
    Video& operator=(const Video&) = delete;
    bool ready;
};

struct Window {
    std::unique_ptr<SDL_Window, Deleter> window;
    std::unique_ptr<SDL_Renderer, Deleter> renderer;
    std::unique_ptr<SDL_Texture, Deleter> texture;

    bool open() {
        window.reset(SDL_CreateWindow(TITLE, SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                      PAGE_WIDTH, PAGE_HEIGHT, SDL_WINDOW_RESIZABLE));
        if (window)
            renderer.reset(SDL_CreateRenderer(window.get(), -1, SDL_RENDERER_SOFTWARE));
        if (renderer) {
            // A display lower than the page shows it smaller, not cut off.
            SDL_RenderSetLogicalSize(renderer.get(), PAGE_WIDTH, PAGE_HEIGHT);
            texture.reset(SDL_CreateTexture(renderer.get(), SDL_PIXELFORMAT_RGB565,
                                            SDL_TEXTUREACCESS_STREAMING, PAGE_WIDTH, PAGE_HEIGHT));
        }
        return texture != nullptr;
    }

    void draw() const {
        SDL_RenderClear(renderer.get());
        SDL_RenderCopy(renderer.get(), texture.get(), nullptr, nullptr);
        SDL_RenderPresent(renderer.get());
    }
};

/// False where the person wants to leave.
bool handleEvents(Viewer& viewer, bool& redraw) {
    SDL_Event event;
    while (SDL_PollEvent(&event) != 0) {
        if (event.type == SDL_QUIT)
            return false;
        if (event.type == SDL_WINDOWEVENT)
            redraw = true;
        if (event.type != SDL_KEYDOWN || event.key.repeat != 0)
            continue;
        if (!viewer.perform(actionOf(event.key.keysym.sym)))
            return false;
    }
    return true;
}

} // namespace

bool hasDisplay() {
    for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        const char* const value = std::getenv(variable);
        if (value != nullptr && *value != '\0')
            return true;
    }
    return false;
}

bool showInWindow(Viewer& viewer, std::string& why) {
    const Video video;
    Window window;
    if (!video.ready || !window.open()) {
        why = SDL_GetError();
        return false;
    }
    std::string told;
    for (bool redraw = false; handleEvents(viewer, redraw); redraw = false) {
        if (const Picture* picture = viewer.next()) {
            SDL_UpdateTexture(window.texture.get(), nullptr, picture->pixels.data(),
                              PAGE_WIDTH * int{sizeof picture->pixels.front()});
            redraw = true;
        }
        if (redraw)
            window.draw();
        if (viewer.message() != told) {
            told = viewer.message();
            std::cout << told << std::endl;
        }
    }
    return true;
}

} // namespace preview
