/// \file
/// The terminal as a place to draw on.
#pragma once

#include <termios.h>

#include <string>

namespace preview {

/// Takes the terminal over for a full-screen view, and gives it back.
class Terminal {
public:
    struct Size {
        int columns;
        int rows;
        double cellRatio; ///< width of a character cell by its height
    };

    Terminal();
    ~Terminal();

    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    Size size() const;
    /// The next key that was typed, or -1; never waits.
    int key() const;
    void write(const std::string& text) const;

private:
    bool m_hasKeys = false;
    termios m_before{};
};

} // namespace preview
