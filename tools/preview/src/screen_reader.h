/// \file
/// What is on the screen of the virtual device.
#pragma once

#include "picture.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace preview {

/// Bound to one thread.
class ScreenReader {
public:
    /// Makes the file where it is not there yet. Throws std::runtime_error.
    explicit ScreenReader(const std::string& path);
    ~ScreenReader();

    ScreenReader(const ScreenReader&) = delete;
    ScreenReader& operator=(const ScreenReader&) = delete;

    /// Number of the newest frame, from 1 on; 0 before the first.
    std::uint64_t newest() const;

    /// Nothing where the frame has not come yet, or has been overwritten.
    std::optional<Picture> copy(std::uint64_t number) const;

    /// Waits for any change of the screen, or for a signal, but no longer than that.
    void waitForChange(std::chrono::milliseconds limit) const;

private:
    void* m_file;
};

} // namespace preview
