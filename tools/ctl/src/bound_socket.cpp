#include "bound_socket.h"

#include <dirent.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <vector>

// The kernel's macros for walking its messages are C.
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wsign-conversion"

namespace client {
namespace {

using Inodes = std::set<std::uint64_t>;

/// Asks the kernel for all Unix sockets with the files that they are bound to.
int requestSockets() {
    struct {
        nlmsghdr header;
        unix_diag_req body;
    } request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.body.sdiag_family = AF_UNIX;
    request.body.udiag_states = UINT32_MAX;
    request.body.udiag_show = UDIAG_SHOW_VFS;
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
    const timeval patience{1, 0};
    if (fd >= 0 && (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0 ||
                    send(fd, &request, sizeof request, 0) < 0)) {
        close(fd);
        return -1;
    }
    return fd;
}

void addIfBoundTo(const struct stat& file, const nlmsghdr* header, Inodes& found) {
    const auto* message = static_cast<const unix_diag_msg*>(NLMSG_DATA(header));
    const auto* attribute = reinterpret_cast<const rtattr*>(message + 1);
    auto rest = static_cast<unsigned>(header->nlmsg_len - NLMSG_LENGTH(sizeof *message));
    for (; RTA_OK(attribute, rest); attribute = RTA_NEXT(attribute, rest)) {
        if (attribute->rta_type != UNIX_DIAG_VFS) {
            continue;
        }
        unix_diag_vfs vfs{};
        std::memcpy(&vfs, RTA_DATA(attribute), sizeof vfs);
        // The kernel gives the number of the file in 32 bits.
        if (vfs.udiag_vfs_ino == static_cast<std::uint32_t>(file.st_ino)) {
            found.insert(message->udiag_ino);
        }
    }
}

/// Sockets bound to exactly this file. False if the kernel cannot tell.
bool askKernel(const struct stat& file, Inodes& found) {
    const int fd = requestSockets();
    if (fd < 0) {
        return false;
    }
    std::vector<char> buffer(1U << 16U);
    bool complete = false;
    for (ssize_t length = 0;
         !complete && (length = recv(fd, buffer.data(), buffer.size(), 0)) > 0;) {
        auto rest = static_cast<unsigned>(length);
        const auto* header = reinterpret_cast<const nlmsghdr*>(buffer.data());
        for (; NLMSG_OK(header, rest); header = NLMSG_NEXT(header, rest)) {
            if (header->nlmsg_type == NLMSG_ERROR) {
                close(fd);
                return false;
            }
            complete = complete || header->nlmsg_type == NLMSG_DONE;
            if (header->nlmsg_type == SOCK_DIAG_BY_FAMILY) {
                addIfBoundTo(file, header, found);
            }
        }
    }
    close(fd);
    return complete;
}

/// Sockets bound under this name, for kernels that cannot tell by file.
void readTable(const std::string& path, Inodes& found) {
    std::ifstream table("/proc/net/unix");
    for (std::string line; std::getline(table, line);) {
        std::istringstream fields(line);
        std::string skipped;
        std::uint64_t inode = 0;
        for (int i = 0; i < 6; ++i) {
            fields >> skipped;
        }
        std::string name;
        if (fields >> inode && std::getline(fields >> std::ws, name) && name == path) {
            found.insert(inode);
        }
    }
}

bool holds(const std::string& process, const Inodes& inodes) {
    const std::string folder = "/proc/" + process + "/fd";
    DIR* const entries = opendir(folder.c_str());
    if (entries == nullptr) {
        return false;
    }
    bool found = false;
    for (const dirent* entry = readdir(entries); entry != nullptr && !found;
         entry = readdir(entries)) {
        char target[64] = "";
        const std::string link = folder + "/" + entry->d_name;
        const char* const kind = "socket:[";
        if (readlink(link.c_str(), target, sizeof target - 1) > 0 &&
            std::strncmp(target, kind, std::strlen(kind)) == 0) {
            found = inodes.count(std::strtoull(target + std::strlen(kind), nullptr, 10)) != 0;
        }
    }
    closedir(entries);
    return found;
}

std::optional<Process> oldestHolder(const Inodes& inodes) {
    std::optional<Process> oldest;
    DIR* const processes = opendir("/proc");
    if (processes == nullptr) {
        return oldest;
    }
    while (const dirent* entry = readdir(processes)) {
        const auto pid = static_cast<pid_t>(std::atoi(entry->d_name));
        if (pid <= 0 || !holds(entry->d_name, inodes)) {
            continue;
        }
        const std::optional<Process> process = findProcess(pid);
        if (process && (!oldest || process->startTicks < oldest->startTicks)) {
            oldest = process;
        }
    }
    closedir(processes);
    return oldest;
}

} // namespace

std::optional<Process> findHolder(const std::string& path) {
    struct stat file {};
    if (stat(path.c_str(), &file) != 0 || !S_ISSOCK(file.st_mode)) {
        return {};
    }
    Inodes inodes;
    if (!askKernel(file, inodes)) {
        inodes.clear();
        readTable(path, inodes);
    }
    if (inodes.empty()) {
        return {};
    }
    return oldestHolder(inodes);
}

} // namespace client
