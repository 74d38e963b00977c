/// \file
/// What the environment asks of the virtual device. Read once, when the library is loaded.
#pragma once

#include <climits>
#include <cstdint>

namespace virtual_device {

/// What VIDIOC_S_FMT adjusts a format to; 0 leaves a field to the device.
struct FormatAdjustment {
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t bytesPerLine;
    std::uint32_t sizeImage;
};

/// Plain memory: it is read between fork and exec, too.
struct Settings {
    char root[PATH_MAX];   ///< empty: no device, no mapped path
    char screen[PATH_MAX]; ///< the screen file
    char log[PATH_MAX];    ///< empty: no log
    std::int64_t refreshNs;
    std::uint32_t maxBuffers;
    FormatAdjustment adjustment;
};

/// The values in force. Before readSettings: nothing is set.
const Settings& settings();

/// Reads the environment, the faults included. Ends the process with status 3 where a value is bad.
void readSettings();

/// One line "virtual-device: ..." on standard error, and the end of the process with status 3.
[[noreturn]] void refuse(const char* variable, const char* value, const char* why);

/// Parses a whole number that fills [text, end), or false.
bool parseNumber(const char* text, const char* end, std::uint64_t limit, std::uint64_t& number);

} // namespace virtual_device
