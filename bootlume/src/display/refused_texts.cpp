#include "display/refused_texts.h"

#include "tracing.h"

namespace paint {

bool RefusedTexts::contains(const std::string& font, const std::string& text) {
    if (m_texts.empty()) {
        return false;
    }
    if (Clock::now() >= m_forgottenAt) {
        m_texts.clear();
    }
    return m_texts.count({font, text}) > 0;
}

void RefusedTexts::add(const std::string& font, const std::string& text, cairo_status_t status) {
    if (m_texts.empty()) {
        m_forgottenAt = Clock::now() + std::chrono::minutes(1);
        m_font = font;
        m_status = cairo_status_to_string(status);
    }
    m_texts.emplace(font, text);
}

void RefusedTexts::report() {
    if (!m_status.empty()) {
        TRACE(Trace::LEVEL_ERROR, "Couldn't draw a text" << Trace::named("font", m_font)
                                                         << Trace::named("status", m_status));
        m_status.clear();
    }
}

} // namespace paint
