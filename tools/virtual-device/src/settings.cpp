#include "settings.h"

#include "../screen.h"
#include "faults.h"
#include "real.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace virtual_device {
namespace {

constexpr const char* PREFIX = "VIRTUAL_DEVICE_";
constexpr const char* ROOT = "VIRTUAL_DEVICE_ROOT";
constexpr const char* SCREEN = "VIRTUAL_DEVICE_SCREEN";
constexpr const char* LOG = "VIRTUAL_DEVICE_LOG";
constexpr const char* REFRESH = "VIRTUAL_DEVICE_REFRESH";
constexpr const char* BUFFERS = "VIRTUAL_DEVICE_BUFFERS";
constexpr const char* FORMAT = "VIRTUAL_DEVICE_FORMAT";
constexpr const char* FAULTS = "VIRTUAL_DEVICE_FAULTS";
constexpr std::array<const char*, 7> KNOWN = {ROOT, SCREEN, LOG, REFRESH, BUFFERS, FORMAT, FAULTS};
constexpr int REFUSED_STATUS = 3;
constexpr std::uint32_t MOST_BUFFERS = 32;

Settings current = {"", "", "", 16666667, MOST_BUFFERS, {0, 0, 0, 0}};

const char* valueOf(const char* name) {
    const char* value = getenv(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

void refuseUnknownNames() {
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        if (strncmp(*entry, PREFIX, strlen(PREFIX)) != 0) {
            continue;
        }
        const std::string name(*entry, strcspn(*entry, "="));
        bool known = false;
        for (const char* candidate : KNOWN) {
            known = known || name == candidate;
        }
        if (!known) {
            refuse(name.c_str(), *entry + name.size() + 1, "there is no such variable");
        }
    }
}

void takePath(const char* name, char (&target)[PATH_MAX]) {
    const char* value = valueOf(name);
    if (value == nullptr) {
        return;
    }
    if (*value != '/') {
        refuse(name, value, "an absolute path is needed");
    }
    if (strlen(value) >= sizeof(target)) {
        refuse(name, value, "the path is too long");
    }
    memcpy(target, value, strlen(value) + 1);
}

void takeRoot() {
    takePath(ROOT, current.root);
    std::size_t length = strlen(current.root);
    while (length > 1 && current.root[length - 1] == '/') {
        current.root[--length] = '\0';
    }
    if (length == 0) {
        return;
    }
    struct stat about {};
    if (length == 1) {
        refuse(ROOT, current.root, "the root of the machine is not a desk");
    }
    if (real().stat(current.root, &about) != 0 || !S_ISDIR(about.st_mode)) {
        refuse(ROOT, current.root, "there is no such folder");
    }
    // Folders that the system always has.
    for (const char* folder : {"/tmp", "/opt", "/opt/userdata"}) {
        mkdir((std::string(current.root) + folder).c_str(), 0777);
    }
    const std::string screen = std::string(current.root) + "/screen";
    if (screen.size() >= sizeof(current.screen)) {
        refuse(ROOT, current.root, "the path is too long");
    }
    memcpy(current.screen, screen.c_str(), screen.size() + 1);
}

void takeRefresh() {
    const char* value = valueOf(REFRESH);
    if (value == nullptr) {
        return;
    }
    char* end = nullptr;
    const double hertz = strtod(value, &end);
    if (*end != '\0' || !std::isfinite(hertz) || hertz < 0 || hertz > 1e6 ||
        (hertz > 0 && hertz < 0.001)) {
        refuse(REFRESH, value, "refreshes a second are needed: 0, or 0.001 to 1000000");
    }
    current.refreshNs = hertz > 0 ? static_cast<std::int64_t>(std::llround(1e9 / hertz)) : 0;
}

void takeBuffers() {
    const char* value = valueOf(BUFFERS);
    if (value == nullptr) {
        return;
    }
    std::uint64_t count = 0;
    if (!parseNumber(value, value + strlen(value), MOST_BUFFERS, count) || count == 0) {
        refuse(BUFFERS, value, "a number from 1 to 32 is needed");
    }
    current.maxBuffers = static_cast<std::uint32_t>(count);
}

void takeFormatField(const char* all, const char* field, const char* end) {
    struct Field {
        const char* name;
        std::uint32_t& target;
        std::uint32_t limit;
    };
    const Field fields[] = {
        {"width=", current.adjustment.width, SCREEN_MAX_SIDE},
        {"height=", current.adjustment.height, SCREEN_MAX_SIDE},
        {"bytesperline=", current.adjustment.bytesPerLine, 1U << 16U},
        {"sizeimage=", current.adjustment.sizeImage, 1U << 26U},
    };
    for (const Field& candidate : fields) {
        const std::size_t length = strlen(candidate.name);
        if (strncmp(field, candidate.name, length) != 0) {
            continue;
        }
        std::uint64_t number = 0;
        if (!parseNumber(field + length, end, candidate.limit, number) || number == 0) {
            refuse(FORMAT, all, "a field has a bad number");
        }
        candidate.target = static_cast<std::uint32_t>(number);
        return;
    }
    refuse(FORMAT, all, "its fields are width=, height=, bytesperline= and sizeimage=");
}

void takeFormat() {
    const char* value = valueOf(FORMAT);
    for (const char* field = value; field != nullptr;) {
        const char* end = field + strcspn(field, ",");
        takeFormatField(value, field, end);
        field = *end == ',' ? end + 1 : nullptr;
    }
}

} // namespace

const Settings& settings() {
    return current;
}

void readSettings() {
    refuseUnknownNames();
    takeRoot();
    takePath(SCREEN, current.screen);
    takePath(LOG, current.log);
    takeRefresh();
    takeBuffers();
    takeFormat();
    if (const char* value = valueOf(FAULTS)) {
        if (const char* why = parseFaults(value)) {
            refuse(FAULTS, value, why);
        }
    }
}

void refuse(const char* variable, const char* value, const char* why) {
    std::string line = "virtual-device: ";
    line.append(variable).append("=\"").append(value).append("\": ").append(why).append("\n");
    // A raw call: this may run before the library and the sanitizers are ready.
    syscall(SYS_write, STDERR_FILENO, line.data(), line.size());
    _exit(REFUSED_STATUS);
}

bool parseNumber(const char* text, const char* end, std::uint64_t limit, std::uint64_t& number) {
    number = 0;
    if (text == end) {
        return false;
    }
    for (; text != end; ++text) {
        if (*text < '0' || *text > '9') {
            return false;
        }
        number = number * 10 + static_cast<std::uint64_t>(*text - '0');
        if (number > limit) {
            return false;
        }
    }
    return true;
}

} // namespace virtual_device
