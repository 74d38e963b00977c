#include "display/refused_texts.h"

#include "tracing.h"

#include <cstddef>

namespace paint {

namespace {

/// A font of which so many texts were refused counts as unreadable: no text of it is tried.
constexpr std::size_t MOST_TEXTS = 16;

} // namespace

void RefusedTexts::forgetAfterAMinute() {
    if (!m_texts.empty() && Clock::now() >= m_forgottenAt) {
        m_texts.clear();
    }
}

bool RefusedTexts::contains(const std::string& font, const std::string& text) const {
    const auto found = m_texts.find(font);
    if (found == m_texts.end()) {
        return false;
    }
    const std::set<std::string>& texts = found->second;
    return texts.size() >= MOST_TEXTS || texts.count(text) > 0;
}

void RefusedTexts::add(const std::string& font, const std::string& text, cairo_status_t status) {
    if (m_texts.empty()) {
        m_forgottenAt = Clock::now() + std::chrono::minutes(1);
        m_font = font;
        m_status = cairo_status_to_string(status);
    }
    m_texts[font].insert(text);
}

void RefusedTexts::report() {
    if (!m_status.empty()) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't draw a text" << Trace::named("font", m_font)
                                                         << Trace::named("status", m_status));
        m_status.clear();
    }
}

} // namespace paint
