/// \file
/// The program itself, on the virtual device.
#pragma once

#include "locate.h"
#include "root.h"
#include "screen_reader.h"

#include <sys/types.h>

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <vector>

namespace preview {

/// Frames of one turn of the ring: the pictures repeat after so many.
constexpr std::uint64_t TURN = 66;
/// Shortest time from one frame to the next.
constexpr int FRAME_MS = 30;

/// The texts of one page; `lines` as the program takes them.
struct Texts {
    std::string title;
    std::string lines;
};

/// Thrown by whoever waits for a splash that somebody has ended in order, with "QUIT" or a signal.
class EndedInOrder : public std::exception {
public:
    const char* what() const noexcept override { return "the splash was ended"; }
};

/// One splash at a time, on one desk. Bound to one thread. All that waits throws Interrupted after
/// a signal, and EndedInOrder or std::runtime_error, with what the splash wrote, once the splash
/// has ended.
class Splash {
public:
    Splash(const Installation& installation, const Root& root);
    ~Splash();

    Splash(const Splash&) = delete;
    Splash& operator=(const Splash&) = delete;

    /// The language of the device; may change while the splash runs.
    void setChinese(bool chinese);
    bool isChinese() const { return m_chinese; }

    /// Without texts the page shows the program's own.
    void start(const std::optional<Texts>& texts);
    /// Ends it in an orderly way, by force where that takes too long. Throws nothing.
    void quit();

    /// From the next start on, the program's drawing calls are recorded. For splashes that end
    /// soon: the record grows with each frame.
    void recordDrawing() { m_recording = true; }
    /// Where the calls of the splash that runs now are recorded.
    std::string recordPath() const { return m_root.path() + "/calls"; }

    /// Waits for the picture of a frame, 0 being the first that is drawn.
    Picture frame(std::uint64_t index);
    /// The newest picture, once it is another than the one of `seen`, which is then set; nothing
    /// where none has come within 100 ms.
    std::optional<Picture> next(std::uint64_t& seen);

private:
    bool hasEnded();
    void throwIfEnded();
    void launch(const std::optional<Texts>& texts);
    std::vector<std::string> environment() const;

    const Installation m_installation;
    const Root& m_root;
    ScreenReader m_screen;
    bool m_chinese = false;
    bool m_recording = false;
    pid_t m_pid = -1;
    int m_status = 0;               ///< how the last one ended, as the kernel tells it
    std::uint64_t m_firstFrame = 0; ///< number of the first frame with a page
};

} // namespace preview
