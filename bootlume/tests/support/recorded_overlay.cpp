#include "support/recorded_overlay.h"

#include "display/overlay.h"

namespace recorded_overlay {

Texts texts;

} // namespace recorded_overlay

namespace paint {

Surface::Surface() = default;
Surface::~Surface() = default;

Overlay::Overlay() = default;
Overlay::~Overlay() = default;

void Overlay::setText(const std::string& title, const std::string& lines) {
    recorded_overlay::texts.emplace_back(title, lines);
}

void Overlay::run() {}

} // namespace paint
