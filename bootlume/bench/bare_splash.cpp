// The floor under the splash: the same calls to the display and to cairo, in the same order and at
// the same pace, and nothing else. It never ends by itself.
//
//   bare_splash {en|zh} TITLE [LINE]...
#include <cairo.h>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

constexpr const char* DEVICE = "/dev/v4l/by-path/platform-imx-ipuv3-ovl.5-video-index0";
constexpr const char* LATIN = "Univers Next W1G Medium";
constexpr const char* CHINESE = "Droid Sans Fallback";
constexpr char PREFIX[] = "Brem K5 ";
constexpr std::size_t PREFIX_LENGTH = sizeof PREFIX - 1;
constexpr int WIDTH = 480;
constexpr int HEIGHT = 800;
constexpr double PI = 3.141592653589793;
constexpr int STEPS = 66;
constexpr long PERIOD_MS = 30;

int device = -1;
v4l2_buffer freeBuffer{};
cairo_t* contexts[2] = {nullptr, nullptr};
bool chinese = false;

void control(unsigned long request, void* argument) {
    if (ioctl(device, request, argument) < 0) {
        std::perror("bare_splash: the display");
        std::exit(EXIT_FAILURE);
    }
}

void openDisplay() {
    device = open(DEVICE, O_RDWR);
    v4l2_capability capabilities{};
    control(VIDIOC_QUERYCAP, &capabilities);
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    control(VIDIOC_G_FMT, &format);
    format.fmt.pix.width = WIDTH;
    format.fmt.pix.height = HEIGHT;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_RGB565;
    format.fmt.pix.field = V4L2_FIELD_ANY;
    format.fmt.pix.colorspace = V4L2_COLORSPACE_SRGB;
    control(VIDIOC_S_FMT, &format);
}

void* mapBuffer(unsigned index) {
    v4l2_buffer buffer{};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    buffer.memory = V4L2_MEMORY_MMAP;
    control(VIDIOC_QUERYBUF, &buffer);
    void* const start = mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, device,
                             static_cast<off_t>(buffer.m.offset));
    if (start == MAP_FAILED) {
        std::perror("bare_splash: a buffer");
        std::exit(EXIT_FAILURE);
    }
    std::memset(start, 0xFF, buffer.length);
    return start;
}

void startStreaming() {
    v4l2_requestbuffers request{};
    request.count = 2;
    request.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    request.memory = V4L2_MEMORY_MMAP;
    control(VIDIOC_REQBUFS, &request);
    void* starts[2];
    for (unsigned i = 0; i < 2; ++i) {
        starts[i] = mapBuffer(i);
    }
    freeBuffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    freeBuffer.memory = V4L2_MEMORY_MMAP;
    freeBuffer.index = 1;
    control(VIDIOC_QBUF, &freeBuffer);
    int type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    control(VIDIOC_STREAMON, &type);
    freeBuffer.index = 0;
    const int stride = cairo_format_stride_for_width(CAIRO_FORMAT_RGB16_565, WIDTH);
    cairo_surface_t* surfaces[2];
    for (unsigned i = 0; i < 2; ++i) {
        surfaces[i] = cairo_image_surface_create_for_data(
            static_cast<unsigned char*>(starts[i]), CAIRO_FORMAT_RGB16_565, WIDTH, HEIGHT, stride);
    }
    for (unsigned i = 0; i < 2; ++i) {
        contexts[i] = cairo_create(surfaces[i]);
    }
}

double selectFont(cairo_t* cr, const char* family, int size) {
    cairo_select_font_face(cr, family, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
    cairo_text_extents_t extents;
    cairo_text_extents(cr, "cairo", &extents);
    return extents.height;
}

struct Style {
    int size;
    int charWidth;
    int shift;
    bool wholeBaseline;
};

void drawText(cairo_t* cr, const char* text, int top, const Style& style) {
    const bool two = chinese && std::strncmp(text, PREFIX, PREFIX_LENGTH) == 0;
    double y = top + selectFont(cr, chinese && !two ? CHINESE : LATIN, style.size);
    if (style.wholeBaseline || two) {
        y = std::trunc(y);
    }
    cairo_move_to(cr, 18, y);
    cairo_show_text(cr, two ? PREFIX : text);
    if (two) {
        selectFont(cr, CHINESE, style.size);
        cairo_move_to(cr, 18 + style.charWidth * static_cast<int>(PREFIX_LENGTH), y + style.shift);
        cairo_show_text(cr, text + PREFIX_LENGTH);
    }
}

void drawRing(cairo_t* cr, int frame) {
    const double angle = (2 * (frame % STEPS)) * PI / STEPS;
    cairo_set_line_width(cr, 6);
    cairo_set_source_rgba(cr, 0, 0, 0, 0.21);
    cairo_arc(cr, 240, 364, 66, angle, angle + PI);
    cairo_stroke(cr);
    cairo_set_line_width(cr, 6);
    cairo_set_source_rgba(cr, 0, 0, 0, 0.76);
    cairo_arc(cr, 240, 364, 66, angle + PI, angle);
    cairo_stroke(cr);
}

void drawFrame(cairo_t* cr, int frame, char** texts, int count) {
    cairo_set_source_rgb(cr, 1.0, 1.0, 1.0);
    cairo_paint(cr);
    cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
    drawText(cr, texts[0], 127, {15, 7, -1, true});
    for (int i = 1; i < count; ++i) {
        drawText(cr, texts[i], 163 + 27 * (i - 1), {21, 10, -2, false});
    }
    cairo_set_line_width(cr, 0.5);
    cairo_set_source_rgb(cr, 0, 0, 0);
    cairo_move_to(cr, 18.5, 150.5);
    cairo_line_to(cr, 462.5, 150.5);
    cairo_stroke(cr);
    drawRing(cr, frame);
}

void flip() {
    control(VIDIOC_QBUF, &freeBuffer);
    freeBuffer.index = freeBuffer.index == 0 ? 1 : 0;
    control(VIDIOC_DQBUF, &freeBuffer);
}

} // namespace

int main(int argc, char** argv) {
    using Clock = std::chrono::system_clock;
    if (argc < 3) {
        std::fputs("usage: bare_splash {en|zh} TITLE [LINE]...\n", stderr);
        return 2;
    }
    chinese = std::strcmp(argv[1], "zh") == 0;
    openDisplay();
    startStreaming();
    for (int frame = 0;; ++frame) {
        const auto start = Clock::now();
        drawFrame(contexts[freeBuffer.index], frame, argv + 2, argc - 2);
        flip();
        const auto used =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
        if (used < PERIOD_MS) {
            const timespec pause{0, static_cast<long>((PERIOD_MS - used) * 1000000)};
            nanosleep(&pause, nullptr);
        }
    }
}
