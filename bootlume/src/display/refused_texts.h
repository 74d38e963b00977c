#pragma once

#include <cairo.h>

#include <chrono>
#include <set>
#include <string>
#include <utility>

namespace paint {

/// The texts that cairo could not draw lately, each with its font. As a rule the font's file could
/// not be read.
///
/// Each try costs a drawing context, so a refused text is tried again only after a minute. Bound to
/// the thread that draws.
class RefusedTexts {
public:
    bool contains(const std::string& font, const std::string& text);
    void add(const std::string& font, const std::string& text, cairo_status_t status);
    /// Writes the "ERROR" line of a minute's first refusal. Call it with no lock held.
    void report();

private:
    using Clock = std::chrono::steady_clock;

    std::set<std::pair<std::string, std::string>> m_texts; ///< font and text
    Clock::time_point m_forgottenAt;
    std::string m_font;   ///< of the first refusal of a minute
    std::string m_status; ///< cairo's; empty once it is reported
};

} // namespace paint
