/// \file
/// A picture of the screen.
#pragma once

#include <cairo.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace preview {

constexpr int PAGE_WIDTH = 480;
constexpr int PAGE_HEIGHT = 800;

/// Rows of RGB565 without padding.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<std::uint16_t> pixels;
};

struct SurfaceDeleter {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct ContextDeleter {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
};
using SurfacePtr = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;
using ContextPtr = std::unique_ptr<cairo_t, ContextDeleter>;

/// The pixel as 0xFFRRGGBB; the brightest value of each colour becomes 255.
std::uint32_t expand(std::uint16_t pixel);

/// The picture in 24 bits a pixel.
SurfacePtr toSurface(const Picture& picture);

std::string toPng(cairo_surface_t* surface);

/// In the place of a file that was there; "-" is standard output. Throws std::runtime_error that
/// names the file and the reason.
void writePng(cairo_surface_t* surface, const std::string& path);
void writePng(const Picture& picture, const std::string& path);

} // namespace preview
