#include "closing_splash.h"

#include <dirent.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>

namespace client {
namespace {

const char* const MAIN_THREAD = "bl-dispatcher";
const char* const SOCKET = "/tmp/.bootlume";

bool isSplash(const std::string& process) {
    std::ifstream file(process + "/comm");
    std::string name;
    return std::getline(file, name) && name == MAIN_THREAD;
}

/// Below which folder a splash on a virtual device has its files; empty for any other.
std::string deskOf(const std::string& process) {
    const std::string variable = "VIRTUAL_DEVICE_ROOT=";
    std::ifstream file(process + "/environ");
    for (std::string entry; std::getline(file, entry, '\0');) {
        if (entry.compare(0, variable.size(), variable) == 0) {
            return entry.substr(variable.size());
        }
    }
    return {};
}

bool sees(const std::string& process, const struct stat& socket) {
    struct stat own {};
    const std::string path = process + "/root" + deskOf(process) + SOCKET;
    return stat(path.c_str(), &own) == 0 && own.st_dev == socket.st_dev &&
           own.st_ino == socket.st_ino;
}

} // namespace

std::optional<Process> findClosing(const std::string& path) {
    struct stat socket {};
    DIR* const processes = stat(path.c_str(), &socket) == 0 ? opendir("/proc") : nullptr;
    if (processes == nullptr) {
        return {};
    }
    std::optional<Process> found;
    for (const dirent* entry = readdir(processes); entry != nullptr && !found;
         entry = readdir(processes)) {
        const std::string process = std::string("/proc/") + entry->d_name;
        if (isSplash(process) && sees(process, socket)) {
            found = findProcess(static_cast<pid_t>(std::atoi(entry->d_name)));
        }
    }
    closedir(processes);
    return found;
}

} // namespace client
