#include "terminal_view.h"

#include "catalogue.h"
#include "terminal.h"
#include "viewer.h"

#include <chafa.h>
#include <langinfo.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace preview {
namespace {

constexpr int LEAST_SIDE_COLUMNS = 24;
constexpr int GAP = 3;
constexpr int ROWS_BELOW = 2; // the newest message, and the keys

struct Deleter {
    void operator()(ChafaTermInfo* info) const { chafa_term_info_unref(info); }
    void operator()(ChafaCanvasConfig* config) const { chafa_canvas_config_unref(config); }
    void operator()(ChafaCanvas* canvas) const { chafa_canvas_unref(canvas); }
    void operator()(ChafaSymbolMap* map) const { chafa_symbol_map_unref(map); }
    void operator()(GString* text) const { g_string_free(text, TRUE); }
};
template <typename T>
using Ptr = std::unique_ptr<T, Deleter>;

ChafaCanvasMode modeOf(const ChafaTermInfo* info) {
    if (chafa_term_info_have_seq(info, CHAFA_TERM_SEQ_SET_COLOR_FGBG_DIRECT)) {
        return CHAFA_CANVAS_MODE_TRUECOLOR;
    }
    if (chafa_term_info_have_seq(info, CHAFA_TERM_SEQ_SET_COLOR_FGBG_256)) {
        return CHAFA_CANVAS_MODE_INDEXED_240;
    }
    if (chafa_term_info_have_seq(info, CHAFA_TERM_SEQ_SET_COLOR_FGBG_16)) {
        return CHAFA_CANVAS_MODE_INDEXED_16;
    }
    return CHAFA_CANVAS_MODE_FGBG;
}

ChafaPixelMode pixelModeOf(const ChafaTermInfo* info) {
    if (chafa_term_info_have_seq(info, CHAFA_TERM_SEQ_BEGIN_KITTY_IMMEDIATE_IMAGE_V1)) {
        return CHAFA_PIXEL_MODE_KITTY;
    }
    if (chafa_term_info_have_seq(info, CHAFA_TERM_SEQ_BEGIN_SIXELS)) {
        return CHAFA_PIXEL_MODE_SIXELS;
    }
    return CHAFA_PIXEL_MODE_SYMBOLS;
}

/// Draws pictures as text for this terminal.
class Painter {
public:
    Painter() : m_info(detect()), m_utf8(std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0) {}

    bool utf8() const { return m_utf8; }

    /// Lays out anew where the terminal has another size.
    void fit(const Terminal::Size& size) {
        if (m_canvas && size.columns == m_size.columns && size.rows == m_size.rows) {
            return;
        }
        m_size = size;
        m_columns = size.columns;
        m_rows = size.rows > ROWS_BELOW ? size.rows - ROWS_BELOW : size.rows;
        chafa_calc_canvas_geometry(PAGE_WIDTH, PAGE_HEIGHT, &m_columns, &m_rows,
                                   static_cast<gfloat>(size.cellRatio), TRUE, FALSE);
        const Ptr<ChafaCanvasConfig> config(chafa_canvas_config_new());
        chafa_canvas_config_set_geometry(config.get(), m_columns, m_rows);
        chafa_canvas_config_set_canvas_mode(config.get(), modeOf(m_info.get()));
        chafa_canvas_config_set_pixel_mode(config.get(), pixelModeOf(m_info.get()));
        const Ptr<ChafaSymbolMap> symbols(chafa_symbol_map_new());
        chafa_symbol_map_add_by_tags(symbols.get(), m_utf8 ? BLOCKS : CHAFA_SYMBOL_TAG_ASCII);
        chafa_canvas_config_set_symbol_map(config.get(), symbols.get());
        m_canvas.reset(chafa_canvas_new(config.get()));
    }

    int columns() const { return m_columns; }

    std::vector<std::string> paint(const Picture& picture) const {
        std::vector<std::uint8_t> pixels;
        pixels.reserve(picture.pixels.size() * 3);
        for (const std::uint16_t pixel : picture.pixels) {
            const std::uint32_t colour = expand(pixel);
            for (const unsigned shift : {16U, 8U, 0U}) {
                pixels.push_back(static_cast<std::uint8_t>(colour >> shift));
            }
        }
        chafa_canvas_draw_all_pixels(m_canvas.get(), CHAFA_PIXEL_RGB8, pixels.data(), picture.width,
                                     picture.height, picture.width * 3);
        const Ptr<GString> text(chafa_canvas_print(m_canvas.get(), m_info.get()));
        return linesOf(text->str);
    }

private:
    static constexpr auto BLOCKS =
        static_cast<ChafaSymbolTags>(CHAFA_SYMBOL_TAG_BLOCK | CHAFA_SYMBOL_TAG_SPACE);

    static Ptr<ChafaTermInfo> detect() {
        return Ptr<ChafaTermInfo>(chafa_term_db_detect(chafa_term_db_get_default(), environ));
    }

    static std::vector<std::string> linesOf(const std::string& text) {
        std::vector<std::string> lines;
        for (std::size_t start = 0; start <= text.size();) {
            const std::size_t end = std::min(text.find('\n', start), text.size());
            lines.push_back(text.substr(start, end - start));
            start = end + 1;
        }
        return lines;
    }

    Ptr<ChafaTermInfo> m_info;
    const bool m_utf8;
    Ptr<ChafaCanvas> m_canvas;
    Terminal::Size m_size{0, 0, 0};
    int m_columns = 0;
    int m_rows = 0;
};

std::string at(int row, int column) {
    return "\x1b[" + std::to_string(row) + ";" + std::to_string(column) + "H";
}

std::string printable(std::string text) {
    for (char& character : text) {
        if (static_cast<unsigned char>(character) < ' ' && character != '\n') {
            character = ' ';
        }
    }
    return text;
}

/// The texts of the page, cut into rows for the side.
std::vector<std::string> sideOf(const std::optional<Texts>& texts) {
    std::vector<std::string> side = {printable(texts ? texts->title : "Brem K5 Konfiguration"), ""};
    for (const std::string& line : bodyLines(texts ? texts->lines : "")) {
        side.push_back(printable(line));
    }
    return side;
}

/// One whole screen of the view.
std::string compose(const Painter& painter, const Picture& picture, const Terminal::Size& size,
                    const std::vector<std::string>& side, const std::string& message,
                    const std::string& keys) {
    std::string screen;
    int row = 0;
    for (const std::string& line : painter.paint(picture)) {
        screen += at(++row, 1) + line + "\x1b[0m";
    }
    const int column = painter.columns() + GAP;
    constexpr int FIRST_ROW = 3;
    row = FIRST_ROW;
    const int room = size.columns - column >= LEAST_SIDE_COLUMNS ? size.rows - ROWS_BELOW : 0;
    for (const std::string& line : side) {
        if (row >= room) {
            break;
        }
        screen +=
            at(row, column) + "\x1b[K" + (row == FIRST_ROW ? "\x1b[1m" : "") + line + "\x1b[0m";
        ++row;
    }
    if (!message.empty()) {
        screen += at(size.rows - 1, 1) + message + "\x1b[K";
    }
    return screen + at(size.rows, 1) + "\x1b[2m" + keys + "\x1b[0m\x1b[K";
}

/// A message in one row: what tells most, a file's name, stands at its end.
std::string fitted(std::string message, std::size_t columns) {
    if (message.size() <= columns) {
        return message;
    }
    std::size_t start = std::min(message.size(), message.size() - columns + 1);
    while (start < message.size() && (static_cast<unsigned char>(message[start]) & 0xC0U) == 0x80) {
        ++start;
    }
    return "…" + message.substr(start);
}

/// False where the person wants to leave.
bool handleKeys(const Terminal& terminal, Viewer& viewer) {
    for (int key = terminal.key(); key >= 0; key = terminal.key()) {
        if (!viewer.perform(actionOf(key))) {
            return false;
        }
    }
    return true;
}

} // namespace

void showInTerminal(Viewer& viewer, const std::string& why, const std::string& hint) {
    std::setlocale(LC_CTYPE, "");
    Painter painter;
    const Terminal terminal;
    int columns = 0;
    const ShownPage* shown = nullptr;
    while (handleKeys(terminal, viewer)) {
        const Picture* const picture = viewer.next();
        if (picture == nullptr) {
            continue;
        }
        const Terminal::Size size = terminal.size();
        painter.fit(size);
        if (size.columns != columns || shown != &viewer.page()) {
            terminal.write("\x1b[2J");
        }
        columns = size.columns;
        shown = &viewer.page();
        const auto room = static_cast<std::size_t>(size.columns - 1);
        std::string keys = viewer.keys() + "   (" + why + ")";
        keys.resize(std::min(keys.size(), room));
        const std::string& message = viewer.message().empty() ? hint : viewer.message();
        terminal.write(
            compose(painter, *picture, size, sideOf(shown->texts), fitted(message, room), keys));
    }
}

} // namespace preview
