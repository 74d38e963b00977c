#pragma once

#include <cairo.h>

#include <chrono>
#include <map>
#include <set>
#include <string>

namespace paint {

/// The texts that cairo could not draw lately, each with its font. As a rule the font's file could
/// not be read.
///
/// Each try costs a drawing context, so a refused text is tried again only after a minute, and a
/// font of which many texts were refused is not tried before that at all. Bound to the thread that
/// draws.
class RefusedTexts {
public:
    /// Empties it once a minute has passed since the first refusal. To be called for every frame.
    void forgetAfterAMinute();
    /// Whether this text is not to be tried in this font.
    bool contains(const std::string& font, const std::string& text) const;
    void add(const std::string& font, const std::string& text, cairo_status_t status);
    /// Writes the "ERROR" line of a minute's first refusal. Call it with no lock held.
    void report();

private:
    using Clock = std::chrono::steady_clock;

    std::map<std::string, std::set<std::string>> m_texts; ///< by font
    Clock::time_point m_forgottenAt;
    std::string m_font;   ///< of the first refusal of a minute
    std::string m_status; ///< cairo's; empty once it is reported
};

} // namespace paint
