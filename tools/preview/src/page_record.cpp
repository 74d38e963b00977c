#include "page_record.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <stdexcept>

namespace preview {
namespace {

/// Goes through the calls of one page, and remembers what cairo remembers.
class Follower {
public:
    void follow(const std::string& call, const nlohmann::json& arguments) {
        // The first argument is the drawing context.
        const auto number = [&](std::size_t index) { return arguments.at(index).get<double>(); };
        if (call == "cairo_select_font_face") {
            m_run.family = arguments.at(1);
        } else if (call == "cairo_set_font_size") {
            m_run.size = number(1);
        } else if (call == "cairo_move_to") {
            m_run.x = number(1);
            m_run.y = number(2);
        } else if (call == "cairo_show_text") {
            m_run.text = arguments.at(1);
            addRun();
        } else if (call == "cairo_line_to") {
            m_page.dividerEnd = number(1);
        } else if (call == "cairo_set_line_width") {
            m_lineWidth = number(1);
        } else if (call == "cairo_arc") {
            m_page.ringX = number(1);
            m_page.ringY = number(2);
            m_page.ringRadius = number(3) + m_lineWidth / 2;
        }
    }

    const PageRecord& page() const { return m_page; }

private:
    /// All texts begin at one left edge: what begins elsewhere goes on with the text before it.
    void addRun() {
        if (m_page.texts.empty() || m_run.x == m_page.texts.front().front().x) {
            m_page.texts.emplace_back();
        }
        m_page.texts.back().push_back(m_run);
    }

    PageRecord m_page;
    Run m_run{};
    double m_lineWidth = 0;
};

} // namespace

PageRecord readPageRecord(const std::string& path) {
    std::ifstream file(path);
    Follower follower;
    int pages = 0;
    for (std::string line; std::getline(file, line);) {
        const nlohmann::json entry = nlohmann::json::parse(line, nullptr, false);
        if (entry.is_discarded()) {
            break; // the newest line may be half written
        }
        const std::string call = entry.at("call");
        pages += call == "cairo_paint" ? 1 : 0; // each page begins with its white ground
        if (pages > 1) {
            break;
        }
        follower.follow(call, entry.at("arguments"));
    }
    const PageRecord& page = follower.page();
    if (page.texts.empty() || page.dividerEnd == 0 || page.ringRadius == 0) {
        throw std::runtime_error(path + ": holds no whole page");
    }
    return page;
}

} // namespace preview
