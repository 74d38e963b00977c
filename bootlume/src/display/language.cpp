#include "display/language.h"

#include "settings_file.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace paint {

namespace {

const char* const SETTINGS = "/opt/userdata/devicestack/appData/confd/GeneratorConfiguration";
constexpr std::string_view SELECTION = R"("selectedLanguage":"zh")";
static_assert(SELECTION.size() == 23, "the exact text, without blanks");

} // namespace

bool isChineseSelected() {
    const brem::SettingsFile file(SETTINGS);
    char piece[4096];
    // Pieces overlap: the text may lie across the end of one.
    constexpr std::int64_t STEP = sizeof piece - (SELECTION.size() - 1);
    for (std::int64_t place = 0;; place += STEP) {
        const std::size_t size = file.read(piece, sizeof piece, place);
        if (memmem(piece, size, SELECTION.data(), SELECTION.size()) != nullptr) {
            return true;
        }
        if (size < sizeof piece) {
            return false;
        }
    }
}

} // namespace paint
