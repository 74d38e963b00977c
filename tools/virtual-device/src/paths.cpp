#include "paths.h"

#include "real.h"
#include "settings.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace virtual_device {
namespace {

struct Rule {
    const char* path;
    const char* below; ///< path below the root, or null for the same
    bool wholeTree;
    bool reboots;
};

constexpr Rule RULES[] = {
    {"/opt/userdata", nullptr, true, false},
    {"/tmp/.bootlume", nullptr, false, false},
    {"/sbin/vrx_reboot", nullptr, false, true},
    {"/sbin/reboot", nullptr, false, true},
    // The same files where /sbin is a link to /usr/sbin.
    {"/usr/sbin/vrx_reboot", "/sbin/vrx_reboot", false, true},
    {"/usr/sbin/reboot", "/sbin/reboot", false, true},
};

const Rule* ruleFor(const char* path) {
    for (const Rule& rule : RULES) {
        const std::size_t length = strlen(rule.path);
        if (strncmp(path, rule.path, length) != 0) {
            continue;
        }
        if (path[length] == '\0' || (rule.wholeTree && path[length] == '/')) {
            return &rule;
        }
    }
    return nullptr;
}

bool liesBelowRoot(const char* path) {
    const std::size_t length = strlen(settings().root);
    return strncmp(path, settings().root, length) == 0 && path[length] == '/';
}

} // namespace

bool isDevicePath(const char* path) {
    return settings().root[0] != '\0' && path != nullptr && strcmp(path, DEVICE_PATH) == 0;
}

MappedPath::MappedPath(const char* path) : m_path(path) {
    if (path == nullptr || *path != '/') {
        return;
    }
    if (isDevicePath(path)) {
        // A character device that everybody has, for calls that only look at the path.
        m_path = "/dev/null";
        return;
    }
    const Rule* rule = ruleFor(path);
    if (rule == nullptr) {
        return;
    }
    const char* root = settings().root;
    if (*root == '\0') {
        m_forbidden = rule->reboots;
        return;
    }
    if (liesBelowRoot(path)) {
        return;
    }
    m_mapped = true;
    const char* below = rule->below != nullptr ? rule->below : path;
    const std::size_t rootLength = strlen(root);
    const std::size_t length = strlen(below);
    m_path = nullptr;
    if (rootLength + length >= sizeof(m_buffer)) {
        return;
    }
    memcpy(m_buffer, root, rootLength);
    memcpy(m_buffer + rootLength, below, length + 1);
    m_path = m_buffer;
}

MappedAddress::MappedAddress(const sockaddr* address, socklen_t length)
    : m_address(address), m_length(length) {
    constexpr std::size_t start = offsetof(sockaddr_un, sun_path);
    if (address == nullptr || length <= start || address->sa_family != AF_UNIX) {
        return;
    }
    const std::size_t room = std::min(sizeof(m_original) - 1, std::size_t(length) - start);
    memcpy(m_original, reinterpret_cast<const char*>(address) + start, room);
    const MappedPath target(m_original);
    if (!target.mapped()) {
        return;
    }
    m_mapped = true;
    m_address = nullptr;
    if (target.get() == nullptr) {
        errno = ENAMETOOLONG;
    } else if (strlen(target.get()) < sizeof(m_own.sun_path)) {
        use(target.get());
    } else {
        char folder[PATH_MAX];
        memcpy(folder, target.get(), strlen(target.get()) + 1);
        char* name = strrchr(folder, '/');
        *name++ = '\0';
        m_folder = real().open(folder, O_PATH | O_DIRECTORY | O_CLOEXEC);
        char path[sizeof(m_own.sun_path)];
        if (m_folder < 0) {
            return;
        }
        const int size = snprintf(path, sizeof(path), "/proc/self/fd/%d/%s", m_folder, name);
        if (size < int(sizeof(path))) {
            use(path);
        } else {
            errno = ENAMETOOLONG;
        }
    }
}

MappedAddress::~MappedAddress() {
    const int saved = errno;
    if (m_folder >= 0) {
        real().close(m_folder);
    }
    errno = saved;
}

void MappedAddress::use(const char* path) {
    m_own.sun_family = AF_UNIX;
    memcpy(m_own.sun_path, path, strlen(path) + 1);
    m_address = reinterpret_cast<const sockaddr*>(&m_own);
    m_length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(path) + 1);
}

} // namespace virtual_device
