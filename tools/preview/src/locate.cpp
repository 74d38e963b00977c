#include "locate.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace preview {
namespace {

namespace fs = std::filesystem;

/// The first of the places where the file is.
std::string find(const std::string& what, const std::vector<fs::path>& places, int access) {
    std::string looked;
    for (const fs::path& candidate : places) {
        std::error_code error;
        if (fs::is_regular_file(candidate, error) && ::access(candidate.c_str(), access) == 0) {
            return fs::canonical(candidate).string();
        }
        looked += "\n  " + candidate.lexically_normal().string();
    }
    throw std::runtime_error("cannot find " + what + "; looked at" + looked);
}

/// What the person or the environment names, in place of where it lies as a rule.
std::vector<fs::path> placesOr(const std::vector<fs::path>& places, const std::string& given,
                               const char* variable) {
    const char* const environment = std::getenv(variable);
    if (!given.empty()) {
        return {given};
    }
    if (environment != nullptr && *environment != '\0') {
        return {environment};
    }
    return places;
}

/// A list of libraries to preload is separated by blanks and colons, and has no way to quote them.
void requirePreloadable(const std::string& path) {
    if (path.find_first_of(" :") != std::string::npos) {
        throw std::runtime_error(path + ": a library in a path with a blank or a colon cannot be "
                                        "preloaded; install it in another folder");
    }
}

fs::path ownFolder() {
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error).parent_path();
}

/// The same text for a shell.
std::string quoted(const std::string& text) {
    const auto plain = [](unsigned char character) {
        return std::isalnum(character) != 0 || std::strchr("/._-+,:@%", character) != nullptr;
    };
    if (std::all_of(text.begin(), text.end(), plain)) {
        return text;
    }
    std::string out = "'";
    for (const char character : text) {
        out += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return out + "'";
}

/// The path as it is typed here: from this folder on where it lies below it.
std::string typed(const fs::path& path) {
    std::error_code error;
    const fs::path relative = path.lexically_relative(fs::current_path(error));
    const bool below = !error && !relative.empty() && *relative.begin() != "..";
    const bool isName = below && !relative.has_parent_path(); // would be looked for in PATH
    return quoted(below ? (isName ? "." / relative : relative).string() : path.string());
}

bool isInPath(const fs::path& folder) {
    const char* const path = std::getenv("PATH");
    return (":" + std::string(path != nullptr ? path : "") + ":")
               .find(":" + folder.string() + ":") != std::string::npos;
}

} // namespace

std::string clientCommand(const std::string& root) {
    const fs::path folder = ownFolder();
    const std::string client = isInPath(folder) ? "bootlumectl" : typed(folder / "bootlumectl");
    return client + " --root " + typed(root);
}

Installation locate(const std::string& bootlume, const std::string& virtualDevice) {
    const fs::path here = ownFolder();
    const fs::path prefix = here.parent_path();
    const char* const library = "libvirtual-device.so";
    Installation found;
    found.bootlume =
        find("bootlume (say where with --bootlume or BOOTLUME_PROGRAM)",
             placesOr({here / "bootlume", prefix / "sbin/bootlume", INSTALL_SBINDIR "/bootlume"},
                      bootlume, "BOOTLUME_PROGRAM"),
             X_OK);
    found.virtualDevice =
        find(std::string(library) + " (say where with --virtual-device or BOOTLUME_VIRTUAL_DEVICE)",
             placesOr({prefix / "lib" / library, prefix / INSTALL_LIBDIR / "bootlume" / library,
                       prefix / "lib/bootlume" / library, prefix / INSTALL_LIBDIR / library},
                      virtualDevice, "BOOTLUME_VIRTUAL_DEVICE"),
             R_OK);
    const char* const recorder = "libcairo-recorder.so";
    found.recorder =
        find(recorder,
             {fs::path(found.virtualDevice).parent_path() / recorder, prefix / "lib" / recorder,
              prefix / INSTALL_LIBDIR / "bootlume" / recorder},
             R_OK);
    requirePreloadable(found.virtualDevice);
    requirePreloadable(found.recorder);
    return found;
}

} // namespace preview
