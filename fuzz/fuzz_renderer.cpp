// Arbitrary bytes as texts: the page stays alive, and the next good text is drawn as ever.
#include "fuzzing.h"

#include "display/overlay.h"
#include "memory_surface.h"

#include <thread>

namespace {

constexpr std::size_t ROWS_ABOVE_RING = 290;

/// One renderer for the whole run, as in the program; its thread ends with the process.
class Page {
public:
    Page() {
        std::thread([this] { m_overlay.run(); }).detach();
    }

    void show(const std::string& title, const std::string& lines) {
        m_overlay.setText(title, lines);
        memory_surface::nextFrame(); // may have begun before the texts were set
        m_picture = memory_surface::nextFrame();
    }

    /// The part with texts; the ring looks different in every frame.
    std::vector<std::uint16_t> texts() const {
        return {m_picture.begin(),
                m_picture.begin() + static_cast<long>(ROWS_ABOVE_RING * paint::Surface::WIDTH)};
    }

private:
    paint::Overlay m_overlay;
    std::vector<std::uint16_t> m_picture;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Page& page = *new Page;
    static const std::vector<std::uint16_t> good = [] {
        page.show("Brem K5", "Bitte warten");
        return page.texts();
    }();
    const std::string text = textOf(data, size);
    const auto half = static_cast<std::string::size_type>(size / 2);
    page.show(text.substr(0, half), text.substr(half));
    page.show("Brem K5", "Bitte warten");
    require(page.texts() == good, "the next good text is drawn as ever");
    return 0;
}
