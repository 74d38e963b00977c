#include "viewer.h"

#include <filesystem>
#include <utility>

namespace preview {
namespace {

namespace fs = std::filesystem;

std::string freeName() {
    for (int number = 1;; ++number) {
        std::string name = "bootlume-" + std::to_string(number) + ".png";
        if (!fs::exists(name))
            return name;
    }
}

} // namespace

Action actionOf(int key) {
    constexpr int ESCAPE = 27;
    switch (key) {
    case 'q':
    case 'Q':
    case ESCAPE:
        return Action::QUIT;
    case 'p':
    case 'P':
        return Action::PICTURE;
    case 'l':
    case 'L':
        return Action::LANGUAGE;
    default:
        return Action::NONE;
    }
}

Viewer::Viewer(Splash& splash, std::string pictureFile)
    : m_splash(splash), m_pictureFile(std::move(pictureFile)) {}

const Picture* Viewer::next() {
    std::optional<Picture> picture = m_splash.next(m_seen);
    if (!picture)
        return nullptr;
    m_picture = std::move(*picture);
    if (!m_pictureFile.empty())
        write(std::exchange(m_pictureFile, {}));
    return &m_picture;
}

bool Viewer::perform(Action action) {
    if (action == Action::PICTURE && !m_picture.pixels.empty())
        write(freeName());
    if (action == Action::LANGUAGE)
        m_splash.setChinese(!m_splash.isChinese());
    return action != Action::QUIT;
}

void Viewer::write(const std::string& path) {
    writePng(m_picture, path);
    m_message = "picture of the page: " + fs::absolute(path).lexically_normal().string();
}

} // namespace preview
