#include "lock_holder.h"

#include <fstream>
#include <sstream>

namespace ctl {
namespace {

std::string nameOf(const std::string& process) {
    std::ifstream file("/proc/" + process + "/comm");
    std::string name;
    std::getline(file, name);
    return name.empty() ? "" : " (" + name + ")";
}

} // namespace

std::string lockHolders(const struct stat& file) {
    std::ifstream table("/proc/locks");
    std::string holders;
    for (std::string line; std::getline(table, line);) {
        // A line of one that waits has an arrow behind its number, and so is passed over.
        std::istringstream fields(line);
        std::string number;
        std::string kind;
        std::string rule;
        std::string access;
        std::string process;
        std::string place; // device, in two parts, and file
        fields >> number >> kind >> rule >> access >> process >> place;
        const std::string inode = place.substr(place.rfind(':') + 1);
        if (kind == "FLOCK" && inode == std::to_string(file.st_ino)) {
            holders += (holders.empty() ? "process " : ", process ") + process + nameOf(process);
        }
    }
    return holders;
}

} // namespace ctl
