/// \file
/// What a person can do while looking at the page, whatever it is shown on.
#pragma once

#include "picture.h"
#include "splash.h"

#include <string>

namespace preview {

enum class Action { NONE, QUIT, PICTURE, LANGUAGE };

constexpr const char* KEYS = "q quit   p picture   l language";

/// The action of a key, given as the character that it types; 27 is Escape.
Action actionOf(int key);

class Viewer {
public:
    /// `pictureFile`: takes the first picture, and may be empty.
    Viewer(Splash& splash, std::string pictureFile);

    /// A picture to show, if there is another one; waits at most 100 ms for it.
    const Picture* next();
    /// False where that was the end.
    bool perform(Action action);
    /// What was written last, as a line for people; empty at first.
    const std::string& message() const { return m_message; }

private:
    void write(const std::string& path);

    Splash& m_splash;
    std::string m_pictureFile;
    std::string m_message;
    Picture m_picture;
    std::uint64_t m_seen = 0;
};

} // namespace preview
