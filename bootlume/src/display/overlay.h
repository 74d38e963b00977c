#pragma once

#include "display/refused_texts.h"
#include "display/surface.h"

#include <cairo.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace paint {

/// How one text is drawn: the first text in the first font; then, if there is a second font, the
/// second text in that.
struct TextRuns {
    std::string firstText;
    std::string firstFont;
    std::string secondText;
    std::string secondFont;
};

/// The splash page: a title, a divider, body lines and a turning ring, drawn into the overlay's
/// buffers.
///
/// run() is the body of a thread that the owner starts, and joins before it destroys the renderer;
/// one renderer exists in a process. setText() and stop() may be called from any thread.
/// Coordinates are pixels of the 480 x 800 page, origin top left.
class Overlay {
public:
    /// Sets the display up; a display that cannot be set up ends the process (see Surface).
    Overlay();
    virtual ~Overlay();

    Overlay(const Overlay&) = delete;
    Overlay& operator=(const Overlay&) = delete;

    /// Replaces the texts, from the next frame on. The lines are split at newlines, or at each
    /// backslash followed by the letter n if that gives more lines.
    void setText(const std::string& title, const std::string& lines);

    /// Draws frames until stop(), then closes the display.
    void run();
    /// run() returns after the frame that it is in; does not wait.
    void stop() { m_running = false; }

private:
    /// Where and how one kind of text is drawn.
    struct TextStyle {
        std::int32_t x;
        std::int32_t fontSize;
        std::int32_t charWidth;  ///< from the first run to the second, per byte of the first
        std::int32_t runYOffset; ///< of the second run
        bool wholeBaseline;      ///< the baseline is whole with one run, too
    };

    TextRuns textRuns(const std::string& text) const;
    // These take the buffer's index: a text may put its context into an error, and a new one takes
    // the context's place.
    void drawFrame(std::uint32_t index);
    void drawTexts(std::uint32_t index);
    void drawText(std::uint32_t index, const std::string& text, std::int32_t top,
                  const TextStyle& style);
    void checkDrawn(std::uint32_t index, const std::string& font, const std::string& text);
    void drawDivider(cairo_t* cr) const;
    void drawSpinner(cairo_t* cr) const;
    void sleepForRest(std::chrono::milliseconds used) const;

    std::int32_t m_framePeriodMs = 30; ///< shortest time from one frame's start to the next
    const char* m_latinFont = "Univers Next W1G Medium";
    const char* m_chineseFont = "Droid Sans Fallback";
    std::string m_productPrefix = "Brem K5 "; ///< stays in the Latin font in Chinese
    std::int32_t m_titleCharWidth = 7;
    std::int32_t m_lineCharWidth = 10;
    std::int32_t m_titleRunYOffset = -1;
    std::int32_t m_lineRunYOffset = -2;
    Surface m_surface;
    std::vector<cairo_surface_t*> m_surfaces; ///< over the frame buffers, by buffer index
    std::vector<cairo_t*> m_contexts;         ///< by buffer index; live until the process ends
    std::string m_title = "Brem K5 Konfiguration";
    std::int32_t m_titleFontSize = 15;
    std::int32_t m_titleX = 18;
    std::int32_t m_titleY = 127;
    std::vector<std::string> m_lines;
    std::int32_t m_lineFontSize = 21;
    std::int32_t m_lineSpacing = 27;
    std::int32_t m_linesX = 18;
    std::int32_t m_linesY = 163;
    double m_dividerWidth = 0.5;
    std::int32_t m_dividerX = 18;
    std::int32_t m_dividerY = 150;
    std::int32_t m_dividerLength = 444;
    std::int32_t m_spinnerRadius = 66;
    std::int32_t m_spinnerLineWidth = 6;
    std::int32_t m_frame = 0;         ///< frames drawn so far
    std::int32_t m_spinnerSteps = 66; ///< frames of one turn
    std::int32_t m_spinnerX = 240;
    std::int32_t m_spinnerY = 364;
    std::mutex m_textMutex; ///< guards the title and the lines
    std::atomic<bool> m_running{true};
    bool m_chinese = false; ///< read anew for every frame
    RefusedTexts m_refused;
};

} // namespace paint
