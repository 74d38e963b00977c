#include "terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace preview {
namespace {

// Another screen without a cursor, and back.
const char* const ENTER = "\x1b[?1049h\x1b[?25l\x1b[2J";
constexpr int MOST_COLUMNS = 500;
constexpr int MOST_ROWS = 250;
const char* const LEAVE = "\x1b[0m\x1b[?25h\x1b[?1049l";

} // namespace

Terminal::Terminal() {
    m_hasKeys = isatty(STDIN_FILENO) != 0 && tcgetattr(STDIN_FILENO, &m_before) == 0;
    if (m_hasKeys) {
        termios raw = m_before;
        raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        raw.c_cc[VMIN] = 0;
        raw.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &raw);
    }
    write(ENTER);
}

Terminal::~Terminal() {
    write(LEAVE);
    if (m_hasKeys) {
        tcsetattr(STDIN_FILENO, TCSANOW, &m_before);
    }
}

Terminal::Size Terminal::size() const {
    winsize window{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_col == 0 ||
        window.ws_row == 0) {
        return {80, 24, 0.5};
    }
    double ratio = 0.5;
    if (window.ws_xpixel != 0 && window.ws_ypixel != 0) {
        ratio = (double{1} * window.ws_xpixel / window.ws_col) /
                (double{1} * window.ws_ypixel / window.ws_row);
    }
    // A terminal that claims to be huge is drawn on as far as the page can use it.
    return {std::min<int>(window.ws_col, MOST_COLUMNS), std::min<int>(window.ws_row, MOST_ROWS),
            ratio};
}

int Terminal::key() const {
    unsigned char character = 0;
    if (!m_hasKeys || read(STDIN_FILENO, &character, 1) != 1) {
        return -1;
    }
    return character;
}

void Terminal::write(const std::string& text) const {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = ::write(STDOUT_FILENO, text.data() + done, text.size() - done);
        if (written < 0 && errno == EAGAIN) {
            pollfd wait{STDOUT_FILENO, POLLOUT, 0};
            poll(&wait, 1, 100);
        } else if (written < 0 && errno != EINTR) {
            return; // the terminal is gone; its signal ends the program
        }
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
}

} // namespace preview
