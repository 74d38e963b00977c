#include "format.h"

#include "../screen.h"
#include "settings.h"

#include <algorithm>

namespace virtual_device {
namespace {

constexpr std::uint32_t WIDTH = 480;
constexpr std::uint32_t HEIGHT = 800;
constexpr std::uint32_t SMALLEST_SIDE = 16;
constexpr std::uint32_t BYTES_PER_PIXEL = 2;
constexpr std::uint32_t LONGEST_LINE = 1U << 16U;

std::uint32_t chosen(std::uint32_t adjusted, std::uint32_t own) {
    return adjusted != 0 ? adjusted : own;
}

void fillRest(v4l2_pix_format& format) {
    format.pixelformat = V4L2_PIX_FMT_RGB565;
    format.field = V4L2_FIELD_NONE;
    format.colorspace = V4L2_COLORSPACE_SRGB;
    format.priv = V4L2_PIX_FMT_PRIV_MAGIC;
    format.flags = 0;
    format.ycbcr_enc = V4L2_YCBCR_ENC_DEFAULT;
    format.quantization = V4L2_QUANTIZATION_DEFAULT;
    format.xfer_func = V4L2_XFER_FUNC_DEFAULT;
}

} // namespace

v4l2_pix_format initialFormat() {
    v4l2_pix_format format{};
    format.width = WIDTH;
    format.height = HEIGHT;
    format.bytesperline = WIDTH * BYTES_PER_PIXEL;
    format.sizeimage = format.bytesperline * HEIGHT;
    fillRest(format);
    return format;
}

void adjustFormat(v4l2_pix_format& format) {
    const FormatAdjustment& adjustment = settings().adjustment;
    fillRest(format);
    format.width =
        chosen(adjustment.width, std::clamp(format.width & ~1U, SMALLEST_SIDE, SCREEN_MAX_SIDE));
    format.height =
        chosen(adjustment.height, std::clamp(format.height, SMALLEST_SIDE, SCREEN_MAX_SIDE));
    // A longer line than needed is the program's choice.
    const std::uint32_t shortest = format.width * BYTES_PER_PIXEL;
    format.bytesperline =
        chosen(adjustment.bytesPerLine, std::clamp(format.bytesperline, shortest, LONGEST_LINE));
    format.sizeimage = chosen(adjustment.sizeImage, format.bytesperline * format.height);
}

} // namespace virtual_device
