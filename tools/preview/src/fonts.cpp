#include "fonts.h"

#include <fontconfig/fontconfig.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace preview {
namespace {

namespace fs = std::filesystem;

std::string inXml(const std::string& text) {
    std::string out;
    for (const char character : text) {
        if (character == '&') {
            out += "&amp;";
        } else if (character == '<') {
            out += "&lt;";
        } else {
            out += character;
        }
    }
    return out;
}

void requireFont(const std::string& file) {
    int count = 0;
    std::error_code error;
    if (!fs::is_regular_file(file, error)) {
        throw std::runtime_error(file + ": there is no such file");
    }
    FcPattern* const pattern =
        FcFreeTypeQuery(reinterpret_cast<const FcChar8*>(file.c_str()), 0, nullptr, &count);
    if (pattern == nullptr) {
        throw std::runtime_error(file + ": holds no font");
    }
    FcPatternDestroy(pattern);
}

/// Rules that give the file's font a name of its own, and put that name before the family's.
std::string rulesFor(const std::string& file, const char* family, const std::string& folder) {
    if (file.empty()) {
        return {};
    }
    requireFont(file);
    fs::remove_all(folder); // of a preview before, in a root with a name
    const std::string link = folder + "/" + fs::path(file).filename().string();
    fs::create_directories(folder);
    fs::create_symlink(fs::absolute(file), link);
    const std::string name = std::string("preview of ") + family;
    return "<dir>" + inXml(folder) + "</dir>\n<match target=\"scan\"><test name=\"file\"><string>" +
           inXml(link) + "</string></test><edit name=\"family\" mode=\"assign\"><string>" + name +
           "</string></edit></match>\n<match target=\"pattern\"><test name=\"family\"><string>" +
           family +
           "</string></test><edit name=\"family\" mode=\"prepend\" binding=\"strong\"><string>" +
           name + "</string></edit></match>\n";
}

/// The configuration file that is in use.
std::string currentConfiguration() {
    const char* const root = std::getenv("FONTCONFIG_SYSROOT");
    if (root != nullptr) {
        return std::string(root) + "/etc/fonts/fonts.conf";
    }
    FcChar8* const name = FcConfigFilename(nullptr);
    std::string path = name != nullptr ? reinterpret_cast<const char*>(name) : "";
    FcStrFree(name);
    return path;
}

bool hasFontsOfTheirOwn() {
    const char* const home = std::getenv("HOME");
    std::error_code error;
    return home != nullptr && (fs::exists(fs::path(home) / ".local/share/fonts", error) ||
                               fs::exists(fs::path(home) / ".fonts", error));
}

} // namespace

void useDeviceFonts(const std::string& program) {
    for (const char* variable : {"FONTCONFIG_SYSROOT", "FONTCONFIG_FILE", "FONTCONFIG_PATH"}) {
        if (std::getenv(variable) != nullptr) {
            return;
        }
    }
    const fs::path tree =
        fs::path(program).parent_path().parent_path() / "share/bootlume/fontconfig";
    std::error_code error;
    if (fs::exists(tree / "etc/fonts/fonts.conf", error) && !hasFontsOfTheirOwn()) {
        setenv("FONTCONFIG_SYSROOT", tree.c_str(), 1);
    }
}

void useFonts(const std::string& latinFile, const std::string& chineseFile,
              const std::string& root) {
    if (latinFile.empty() && chineseFile.empty()) {
        return;
    }
    const std::string base = currentConfiguration();
    unsetenv("FONTCONFIG_SYSROOT"); // the file below would be looked for in it
    const std::string file = root + "/fonts.conf";
    const std::string rules = rulesFor(latinFile, LATIN_FAMILY, root + "/fonts/latin") +
                              rulesFor(chineseFile, CHINESE_FAMILY, root + "/fonts/chinese");
    // The cache of the folder comes first, so that nothing is left in the user's.
    std::ofstream(file) << "<?xml version=\"1.0\"?>\n<fontconfig>\n<cachedir>"
                        << inXml(root + "/cache") << "</cachedir>\n<include ignore_missing=\"yes\">"
                        << inXml(base) << "</include>\n"
                        << rules << "</fontconfig>\n";
    setenv("FONTCONFIG_FILE", file.c_str(), 1);
    FcInitReinitialize();
}

std::string fontFor(const std::string& family) {
    FcPattern* const wanted = FcPatternCreate();
    FcPatternAddString(wanted, FC_FAMILY, reinterpret_cast<const FcChar8*>(family.c_str()));
    FcConfigSubstitute(nullptr, wanted, FcMatchPattern);
    FcDefaultSubstitute(wanted);
    FcResult result = FcResultNoMatch;
    FcPattern* const found = FcFontMatch(nullptr, wanted, &result);
    FcChar8* name = nullptr;
    std::string text = "no font";
    if (found != nullptr && FcPatternGetString(found, FC_FULLNAME, 0, &name) == FcResultMatch) {
        text = reinterpret_cast<const char*>(name);
    }
    if (found != nullptr) {
        FcPatternDestroy(found);
    }
    FcPatternDestroy(wanted);
    return text;
}

} // namespace preview
