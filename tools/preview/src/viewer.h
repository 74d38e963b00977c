/// \file
/// What a person can do while looking at the page, whatever it is shown on.
#pragma once

#include "picture.h"
#include "splash.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace preview {

enum class Action { NONE, QUIT, PICTURE, LANGUAGE, NEXT, PREVIOUS };

/// The action of a key, given as the character that it types; 27 is Escape.
Action actionOf(int key);

/// A page to look at.
struct ShownPage {
    std::optional<Texts> texts; ///< the program's own without
    bool chinese = false;
    std::string name; ///< for people; empty where it is the only one
};

/// Shows one page after the other, on one splash. Throws what the splash throws.
class Viewer {
public:
    /// `pages`: at least one. `pictureFile`: takes the first picture, and may be empty.
    Viewer(Splash& splash, std::vector<ShownPage> pages, std::string pictureFile);

    /// A picture to show, if there is another one; waits at most 100 ms for it.
    const Picture* next();
    /// False where that was the end.
    bool perform(Action action);

    const ShownPage& page() const { return m_pages[m_index]; }
    /// What the keys do, in one row.
    std::string keys() const;
    /// What a person should know now, in one row; empty where there is nothing.
    const std::string& message() const { return m_message; }
    /// A picture could not be written.
    bool failed() const { return m_failed; }

private:
    void turnTo(std::size_t index);
    void write(const std::string& path);

    Splash& m_splash;
    const std::vector<ShownPage> m_pages;
    std::size_t m_index = 0;
    std::string m_pictureFile;
    std::string m_message;
    bool m_failed = false;
    Picture m_picture;
    std::uint64_t m_seen = 0;
};

} // namespace preview
