/// \file
/// Publishes what the display shows.
#pragma once

#include <cstdint>

namespace virtual_device {

struct ScreenHeader;

/// A picture as it lies in a frame buffer.
struct Picture {
    const unsigned char* pixels;
    std::uint64_t bytes; ///< what may be read from `pixels`
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t bytesPerLine;
    std::uint32_t pixelFormat;
    std::uint32_t buffer;
};

/// Writer of the screen file. Not for several threads at once.
class ScreenFile {
public:
    /// Opens or makes the file of the settings. An existing screen goes on: frames are numbered
    /// from where they were, so that readers keep their mapping from one start to the next.
    /// Ends the process with status 3 where the file cannot be made.
    ScreenFile();

    ScreenFile(const ScreenFile&) = delete;
    ScreenFile& operator=(const ScreenFile&) = delete;

    /// Claims the device among processes, as a driver's queue has one owner. False where another
    /// process has it. The claim of a process that dies ends with it.
    bool claim();
    void unclaim();

    void switchOn();
    void switchOff();
    /// Copies the picture into the file; returns its frame number.
    std::uint64_t show(const Picture& picture);

private:
    void announce();

    int m_fd;
    unsigned char* m_file;
    ScreenHeader* m_header;
};

} // namespace virtual_device
