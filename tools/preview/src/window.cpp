#include "window.h"

#include "viewer.h"

#include <SDL.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>

namespace preview {
namespace {

const std::string TITLE = "bootlume preview";

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
        SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, "linear");
        // Of the library's ways to draw only those that a person can look at.
        if (SDL_getenv("SDL_VIDEODRIVER") == nullptr) {
            SDL_SetHint(SDL_HINT_VIDEODRIVER, "x11,wayland");
        }
        ready = SDL_Init(SDL_INIT_VIDEO) == 0;
    }
    ~Video() { SDL_Quit(); }
    Video(const Video&) = delete;
    Video& operator=(const Video&) = delete;
    bool ready;
};

/// The page's size; less, of the same shape, where the display has no room for it.
SDL_Point fittingSize() {
    constexpr double FRAME = 0.94; // a window's title and edges want some of the room
    SDL_Rect room{};
    double scale = 1;
    if (SDL_GetDisplayUsableBounds(0, &room) == 0) {
        scale = std::min({scale, FRAME * room.w / PAGE_WIDTH, FRAME * room.h / PAGE_HEIGHT});
    }
    return {static_cast<int>(PAGE_WIDTH * scale), static_cast<int>(PAGE_HEIGHT * scale)};
}

struct Window {
    std::unique_ptr<SDL_Window, Deleter> window;
    std::unique_ptr<SDL_Renderer, Deleter> renderer;
    std::unique_ptr<SDL_Texture, Deleter> texture;
    std::string told; ///< the newest title

    bool open() {
        const SDL_Point size = fittingSize();
        window.reset(SDL_CreateWindow(TITLE.c_str(), SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                      size.x, size.y, SDL_WINDOW_RESIZABLE));
        if (window) {
            renderer.reset(SDL_CreateRenderer(window.get(), -1, SDL_RENDERER_SOFTWARE));
        }
        if (renderer) {
            // Whatever size the window has or is given, the page is shown whole.
            SDL_RenderSetLogicalSize(renderer.get(), PAGE_WIDTH, PAGE_HEIGHT);
            texture.reset(SDL_CreateTexture(renderer.get(), SDL_PIXELFORMAT_RGB565,
                                            SDL_TEXTUREACCESS_STREAMING, PAGE_WIDTH, PAGE_HEIGHT));
        }
        return texture != nullptr;
    }

    /// The title bar says which page it is, and what the keys do.
    void tell(const Viewer& viewer) {
        const std::string& name = viewer.page().name;
        const std::string title = TITLE + (name.empty() ? "" : ", " + name) + ": " + viewer.keys();
        if (title != told) {
            SDL_SetWindowTitle(window.get(), title.c_str());
            told = title;
        }
    }

    void draw() const {
        SDL_SetRenderDrawColor(renderer.get(), 0xEC, 0xED, 0xF0, 0xFF); // beside the page
        SDL_RenderClear(renderer.get());
        SDL_RenderCopy(renderer.get(), texture.get(), nullptr, nullptr);
        SDL_RenderPresent(renderer.get());
    }
};

Action actionOfKey(SDL_Keycode key) {
    switch (key) {
    case SDLK_RIGHT:
    case SDLK_PAGEDOWN:
        return Action::NEXT;
    case SDLK_LEFT:
    case SDLK_PAGEUP:
        return Action::PREVIOUS;
    default:
        return actionOf(key);
    }
}

/// False where the person wants to leave.
bool handleEvents(Viewer& viewer, bool& redraw) {
    SDL_Event event;
    while (SDL_PollEvent(&event) != 0) {
        if (event.type == SDL_QUIT) {
            return false;
        }
        if (event.type == SDL_WINDOWEVENT) {
            redraw = true;
        }
        if (event.type != SDL_KEYDOWN || event.key.repeat != 0) {
            continue;
        }
        if (!viewer.perform(actionOfKey(event.key.keysym.sym))) {
            return false;
        }
    }
    return true;
}

} // namespace

bool hasDisplay() {
    for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        const char* const value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            return true;
        }
    }
    return false;
}

bool showInWindow(Viewer& viewer, std::string& why, const std::string& hint) {
    const Video video;
    Window window;
    if (!video.ready || !window.open()) {
        why = SDL_GetError();
        return false;
    }
    std::cout << hint << std::endl;
    std::string told;
    for (bool redraw = false; handleEvents(viewer, redraw); redraw = false) {
        if (const Picture* picture = viewer.next()) {
            SDL_UpdateTexture(window.texture.get(), nullptr, picture->pixels.data(),
                              PAGE_WIDTH * int{sizeof picture->pixels.front()});
            redraw = true;
        }
        if (redraw) {
            window.draw();
        }
        if (viewer.message() != told) {
            told = viewer.message();
            std::cout << told << std::endl;
        }
        window.tell(viewer);
    }
    return true;
}

} // namespace preview
