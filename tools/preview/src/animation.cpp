#include "animation.h"

#include "file.h"

#include <webp/encode.h>
#include <webp/mux.h>

#include <memory>
#include <stdexcept>

namespace preview {
namespace {

struct EncoderDeleter {
    void operator()(WebPAnimEncoder* encoder) const { WebPAnimEncoderDelete(encoder); }
};
using Encoder = std::unique_ptr<WebPAnimEncoder, EncoderDeleter>;

Encoder makeEncoder(int width, int height) {
    WebPAnimEncoderOptions options;
    WebPAnimEncoderOptionsInit(&options);
    options.anim_params.loop_count = 0;
    return Encoder(WebPAnimEncoderNew(width, height, &options));
}

void add(WebPAnimEncoder* encoder, const WebPConfig& config, const Picture& picture, int timeMs) {
    WebPPicture frame;
    WebPPictureInit(&frame);
    frame.use_argb = 1;
    frame.width = picture.width;
    frame.height = picture.height;
    bool added = WebPPictureAlloc(&frame) != 0;
    if (added) {
        auto pixel = picture.pixels.begin();
        for (int y = 0; y < frame.height; ++y) {
            for (int x = 0; x < frame.width; ++x) {
                frame.argb[y * frame.argb_stride + x] = expand(*pixel++);
            }
        }
        added = WebPAnimEncoderAdd(encoder, &frame, timeMs, &config) != 0;
    }
    WebPPictureFree(&frame);
    if (!added) {
        throw std::runtime_error(WebPAnimEncoderGetError(encoder));
    }
}

} // namespace

void writeAnimation(const std::vector<Picture>& pictures, int frameMs, const std::string& path) {
    const Encoder encoder = makeEncoder(pictures.front().width, pictures.front().height);
    WebPConfig config;
    WebPConfigInit(&config);
    config.lossless = 1;
    int timeMs = 0;
    for (const Picture& picture : pictures) {
        add(encoder.get(), config, picture, timeMs);
        timeMs += frameMs;
    }
    WebPData data;
    WebPDataInit(&data);
    const bool done = WebPAnimEncoderAdd(encoder.get(), nullptr, timeMs, nullptr) != 0 &&
                      WebPAnimEncoderAssemble(encoder.get(), &data) != 0;
    const std::string bytes(reinterpret_cast<const char*>(data.bytes), done ? data.size : 0);
    WebPDataClear(&data);
    if (!done) {
        throw std::runtime_error(WebPAnimEncoderGetError(encoder.get()));
    }
    writeFile(bytes, path);
}

} // namespace preview
