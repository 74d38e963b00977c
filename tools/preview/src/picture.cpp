#include "picture.h"

#include "file.h"

#include <stdexcept>

namespace preview {

std::uint32_t expand(std::uint16_t pixel) {
    const std::uint32_t red = (pixel >> 11U) & 0x1FU;
    const std::uint32_t green = (pixel >> 5U) & 0x3FU;
    const std::uint32_t blue = pixel & 0x1FU;
    return 0xFF000000U | ((red << 3U | red >> 2U) << 16U) | ((green << 2U | green >> 4U) << 8U) |
           (blue << 3U | blue >> 2U);
}

SurfacePtr toSurface(const Picture& picture) {
    SurfacePtr surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, picture.width, picture.height));
    unsigned char* const data = cairo_image_surface_get_data(surface.get());
    if (data == nullptr) {
        throw std::runtime_error("no memory for a picture");
    }
    const int stride = cairo_image_surface_get_stride(surface.get());
    auto pixel = picture.pixels.begin();
    for (int y = 0; y < picture.height; ++y) {
        auto* const row = reinterpret_cast<std::uint32_t*>(data + std::ptrdiff_t{y} * stride);
        for (int x = 0; x < picture.width; ++x) {
            row[x] = expand(*pixel++);
        }
    }
    cairo_surface_mark_dirty(surface.get());
    return surface;
}

std::string toPng(cairo_surface_t* surface) {
    std::string bytes;
    const auto append = [](void* closure, const unsigned char* data, unsigned length) {
        static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
        return CAIRO_STATUS_SUCCESS;
    };
    const cairo_status_t status = cairo_surface_write_to_png_stream(surface, append, &bytes);
    if (status != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error(cairo_status_to_string(status));
    }
    return bytes;
}

void writePng(cairo_surface_t* surface, const std::string& path) {
    writeFile(toPng(surface), path);
}

void writePng(const Picture& picture, const std::string& path) {
    writePng(toSurface(picture).get(), path);
}

} // namespace preview
