#include "root.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace preview {
namespace {

std::string makeFolder() {
    const char* parent = std::getenv("TMPDIR");
    std::error_code error;
    if (parent == nullptr || *parent == '\0' || !std::filesystem::is_directory(parent, error)) {
        parent = "/tmp";
    }
    std::string path =
        std::filesystem::absolute(std::string(parent) + "/bootlume-preview-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    return path;
}

/// Body of the process that tidies up. A terminal's signals do not reach its session.
[[noreturn]] void removeAtEnd(const std::string& path, int end) {
    setsid();
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        std::signal(number, SIG_IGN);
    }
    if (chdir("/") != 0) {
        _exit(1);
    }
    // It must not hold what others wait for the end of, such as a pipe at standard output.
    const int nothing = open("/dev/null", O_RDWR);
    for (int fd = 0; fd <= 2; ++fd) {
        dup2(nothing, fd);
    }
    char byte = 0;
    while (read(end, &byte, 1) < 0 && errno == EINTR) {
    }
    std::error_code error;
    std::filesystem::remove_all(path, error);
    _exit(error ? 1 : 0);
}

/// Makes the folder where it is missing, and takes it for this program alone.
std::string takeFolder(const std::string& given, int& lock) {
    std::string path = std::filesystem::absolute(given).lexically_normal().string();
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    std::error_code error;
    std::filesystem::create_directories(path, error);
    lock = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (lock < 0) {
        throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    if (flock(lock, LOCK_EX | LOCK_NB) != 0) {
        throw std::runtime_error(path + ": another preview uses this folder");
    }
    return path;
}

} // namespace

Root::Root(const std::string& given) {
    if (given.empty()) {
        m_path = makeFolder();
        startRemover();
    } else {
        m_path = takeFolder(given, m_keepAlive);
    }
}

void Root::startRemover() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) == 0) {
        m_remover = fork();
        if (m_remover == 0) {
            close(ends[1]);
            removeAtEnd(m_path, ends[0]);
        }
        close(ends[0]);
        m_keepAlive = ends[1];
    }
    if (m_remover < 0) {
        const std::string why = std::strerror(errno);
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
        throw std::runtime_error("cannot start a process: " + why);
    }
}

Root::~Root() {
    close(m_keepAlive);
    while (m_remover > 0 && waitpid(m_remover, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace preview
