#include "locate.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace preview {
namespace {

namespace fs = std::filesystem;

std::string find(const char* what, const char* option, const char* variable,
                 const std::string& given, const std::vector<fs::path>& places, int access) {
    std::vector<fs::path> candidates = places;
    const char* const environment = std::getenv(variable);
    if (!given.empty())
        candidates = {given};
    else if (environment != nullptr && *environment != '\0')
        candidates = {environment};
    std::string looked;
    for (const fs::path& candidate : candidates) {
        std::error_code error;
        if (fs::is_regular_file(candidate, error) && ::access(candidate.c_str(), access) == 0)
            return fs::canonical(candidate).string();
        looked += "\n  " + candidate.lexically_normal().string();
    }
    throw std::runtime_error("cannot find " + std::string(what) + " (say where with " + option +
                             " or " + variable + "); looked at" + looked);
}

} // namespace

Installation locate(const std::string& bootlume, const std::string& virtualDevice) {
    std::error_code error;
    const fs::path here = fs::read_symlink("/proc/self/exe", error).parent_path();
    const fs::path prefix = here.parent_path();
    const char* const library = "libvirtual-device.so";
    return {find("bootlume", "--bootlume", "BOOTLUME_PROGRAM", bootlume,
                 {here / "bootlume", prefix / "sbin/bootlume", "/usr/sbin/bootlume"}, X_OK),
            find(library, "--virtual-device", "BOOTLUME_VIRTUAL_DEVICE", virtualDevice,
                 {prefix / "lib" / library, prefix / INSTALL_LIBDIR / "bootlume" / library,
                  prefix / "lib/bootlume" / library, prefix / INSTALL_LIBDIR / library},
                 R_OK)};
}

} // namespace preview
