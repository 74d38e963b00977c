#include "viewer.h"

#include <cctype>
#include <exception>
#include <filesystem>
#include <utility>

namespace preview {
namespace {

namespace fs = std::filesystem;

std::string freeName() {
    for (int number = 1;; ++number) {
        std::string name = "bootlume-" + std::to_string(number) + ".png";
        if (!fs::exists(name)) {
            return name;
        }
    }
}

} // namespace

Action actionOf(int key) {
    constexpr int ESCAPE = 27;
    switch (key >= 'A' && key <= 'Z' ? std::tolower(key) : key) {
    case 'q':
    case ESCAPE:
        return Action::QUIT;
    case 'p':
        return Action::PICTURE;
    case 'l':
        return Action::LANGUAGE;
    case 'n':
        return Action::NEXT;
    case 'b':
        return Action::PREVIOUS;
    default:
        return Action::NONE;
    }
}

Viewer::Viewer(Splash& splash, std::vector<ShownPage> pages, std::string pictureFile)
    : m_splash(splash), m_pages(std::move(pages)), m_pictureFile(std::move(pictureFile)) {
    turnTo(0);
}

void Viewer::turnTo(std::size_t index) {
    m_index = index;
    m_splash.setChinese(page().chinese);
    m_splash.start(page().texts);
    m_message = page().name;
}

const Picture* Viewer::next() {
    std::optional<Picture> picture = m_splash.next(m_seen);
    if (!picture) {
        return nullptr;
    }
    m_picture = std::move(*picture);
    if (!m_pictureFile.empty()) {
        write(std::exchange(m_pictureFile, {}));
    }
    return &m_picture;
}

bool Viewer::perform(Action action) {
    if (action == Action::PICTURE && !m_picture.pixels.empty()) {
        write(freeName());
    } else if (action == Action::LANGUAGE) {
        m_splash.setChinese(!m_splash.isChinese());
    } else if (action == Action::NEXT && m_index + 1 < m_pages.size()) {
        turnTo(m_index + 1);
    } else if (action == Action::PREVIOUS && m_index > 0) {
        turnTo(m_index - 1);
    }
    return action != Action::QUIT;
}

std::string Viewer::keys() const {
    return std::string("q quit   p picture   l language") +
           (m_pages.size() > 1 ? "   n next   b back" : "");
}

void Viewer::write(const std::string& path) {
    const std::string name = fs::absolute(path).lexically_normal().string();
    try {
        writePng(m_picture, name);
        m_message = "picture of the page: " + name;
    } catch (const std::exception& error) {
        m_message = std::string("no picture: ") + error.what();
        m_failed = true;
    }
}

} // namespace preview
