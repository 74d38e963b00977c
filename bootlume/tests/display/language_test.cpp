#include "display/language.h"

#include "desk.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace paint {
namespace {

namespace fs = std::filesystem;

const char* const SELECTION = R"("selectedLanguage":"zh")";

class ALanguageFile : public testing::Test {
protected:
    ALanguageFile()
        : m_path(desk::path("/opt/userdata/devicestack/appData/confd/GeneratorConfiguration")) {
        fs::create_directories(m_path.parent_path());
        fs::remove_all(m_path);
    }
    ~ALanguageFile() override { fs::remove_all(m_path); }

    bool selectsChinese(const std::string& content) const {
        std::ofstream(m_path, std::ios::binary) << content;
        return isChineseSelected();
    }

    const fs::path m_path;
};

TEST_F(ALanguageFile, ThatIsMissingSelectsLatin) {
    EXPECT_FALSE(isChineseSelected());
}

TEST_F(ALanguageFile, ThatIsEmptySelectsLatin) {
    EXPECT_FALSE(selectsChinese(""));
}

TEST_F(ALanguageFile, WithTheExactTextSelectsChinese) {
    EXPECT_TRUE(selectsChinese(SELECTION));
    EXPECT_TRUE(selectsChinese("{\"a\":1," + std::string(SELECTION) + ",\"b\":2}\n"));
}

TEST_F(ALanguageFile, WithAlmostTheTextSelectsLatin) {
    const std::string text = SELECTION;
    EXPECT_FALSE(selectsChinese(text.substr(1)));
    EXPECT_FALSE(selectsChinese(text.substr(0, text.size() - 1)));
    EXPECT_FALSE(selectsChinese(R"("selectedLanguage": "zh")"));
    EXPECT_FALSE(selectsChinese(R"("selectedLanguage":"ZH")"));
}

TEST_F(ALanguageFile, SelectsChineseWhereverTheTextStands) {
    for (std::size_t before = 4000; before < 4200; ++before) {
        ASSERT_TRUE(selectsChinese(std::string(before, 'x') + SELECTION)) << before;
    }
    EXPECT_TRUE(selectsChinese(std::string(1000000, '\0') + SELECTION + std::string(9, '\0')));
}

TEST_F(ALanguageFile, ThatHoldsThePiecesOfTheTextInTheWrongPlacesSelectsLatin) {
    const std::string text = SELECTION;
    for (std::size_t cut = 1; cut < text.size(); ++cut) {
        // The second window's last bytes come to lie in front of what the first had there.
        std::string content(4096 + 100 - (text.size() - 1), 'x');
        content.replace(100, text.size() - cut, text, cut);
        content.replace(content.size() - cut, cut, text, 0, cut);
        ASSERT_FALSE(selectsChinese(content)) << cut;
    }
}

TEST_F(ALanguageFile, IsReadAfreshEachTime) {
    EXPECT_TRUE(selectsChinese(SELECTION));
    EXPECT_FALSE(selectsChinese("{}"));
    EXPECT_TRUE(selectsChinese(SELECTION));
}

} // namespace
} // namespace paint
