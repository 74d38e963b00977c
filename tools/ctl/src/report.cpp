#include "commands.h"

#include "log_filter.h"
#include "shell.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>

namespace ctl {
namespace {

const char* const DEVICE = "/dev/v4l/by-path/platform-imx-ipuv3-ovl.5-video-index0";
const char* const PACKAGES = "dpkg-query -W 'bootlume*' 2>/dev/null";
const char* const UNIT = "systemctl show bootlume.service "
                         "--property=LoadState,UnitFileState,ActiveState,SubState,Result,"
                         "ExecMainStatus,ExecMainStartTimestamp,ExecMainExitTimestamp";
const char* const FONTS =
    "tree=/usr/share/bootlume/fontconfig; [ ! -d $tree ] || export FONTCONFIG_SYSROOT=$tree\n"
    "fc-match 'Univers Next W1G Medium'; fc-match 'Droid Sans Fallback'";
const char* const LOG =
    "journalctl --boot --no-pager --no-hostname --lines=40 --unit=bootlume.service ||\n"
    "grep -h 'bootlume' /var/log/messages /var/log/syslog 2>/dev/null | tail -n 40";

void title(const char* text) {
    std::cout << "\n== " << text << '\n';
}

std::string systemName() {
    std::ifstream file("/etc/os-release");
    const std::string key = "PRETTY_NAME=";
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, key.size(), key) == 0) {
            return line.substr(key.size());
        }
    }
    return "unknown";
}

void versions() {
    utsname system{};
    uname(&system);
    std::cout << "bootlumectl " PROJECT_VERSION "\n"
              << system.sysname << ' ' << system.release << ' ' << system.machine << '\n'
              << "system " << systemName() << '\n'
              << said(PACKAGES);
}

std::string fourLetters(std::uint32_t code) {
    std::string text;
    for (int i = 0; i < 4; ++i) {
        text += static_cast<char>(code >> (8 * i) & 0x7FU);
    }
    return text;
}

/// Asks the driver, and changes nothing.
void display() {
    std::array<char, 256> target{};
    const ssize_t length = readlink(DEVICE, target.data(), target.size());
    std::cout << DEVICE;
    if (length > 0) {
        std::cout << " -> " << std::string(target.data(), static_cast<std::size_t>(length));
    }
    std::cout << '\n';
    const int fd = open(DEVICE, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    v4l2_capability about{};
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    if (fd < 0 || ioctl(fd, VIDIOC_QUERYCAP, &about) != 0) {
        std::cout << "not asked: " << std::strerror(errno) << '\n';
    } else {
        std::cout << "driver " << about.driver << ", card " << about.card << '\n';
        if (ioctl(fd, VIDIOC_G_FMT, &format) == 0) {
            std::cout << "format " << format.fmt.pix.width << " x " << format.fmt.pix.height << ' '
                      << fourLetters(format.fmt.pix.pixelformat) << ", "
                      << format.fmt.pix.bytesperline << " bytes a row\n";
        }
    }
    if (fd >= 0) {
        close(fd);
    }
}

void traceConfiguration(const std::string& path) {
    std::cout << said("ls -ldn " + quoted(path))
              << said("grep -i '^bootlume[ \t]' " + quoted(path));
}

} // namespace

int report(const Places& places) {
    std::cout << "== Versions\n";
    versions();
    title("Service");
    std::cout << said(UNIT);
    title("Display");
    display();
    title("Fonts");
    std::cout << said(FONTS);
    title("Trace configuration");
    traceConfiguration(places.traceConfig);
    title("Socket");
    std::cout << said("ls -ldn " + quoted(places.socket)) << statusAsJson(places) << '\n';
    title("Log, without texts and what reboot programs said");
    std::cout << withoutTexts(said(LOG));
    return EXIT_DONE;
}

} // namespace ctl
