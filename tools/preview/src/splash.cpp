#include "splash.h"

#include "interruption.h"
#include "quit.h"
#include "splash_socket.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace preview {
namespace {

const char* const LANGUAGE = "/opt/userdata/devicestack/appData/confd/GeneratorConfiguration";
constexpr std::chrono::milliseconds LOOK_AGAIN{50};
constexpr std::chrono::milliseconds UNTIL_FORCE{10000};
constexpr std::chrono::milliseconds GRACE{10000};
constexpr std::chrono::milliseconds GRACE_STEP{5};

bool beginsWith(const std::string& text, const char* start) {
    return text.compare(0, std::strlen(start), start) == 0;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// What becomes the splash. `output` takes both of its outputs; `keepAlive` stays open.
[[noreturn]] void become(const char* program, char* const* arguments, char* const* environment,
                         int output, int keepAlive) {
    prctl(PR_SET_PDEATHSIG, SIGKILL); // it must not outlive the preview
    std::signal(SIGPIPE, SIG_DFL);
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    fcntl(keepAlive, F_SETFD, 0);
    execve(program, arguments, environment);
    dprintf(STDERR_FILENO, "%s: %s\n", program, std::strerror(errno));
    _exit(127);
}

std::string readAll(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

} // namespace

Splash::Splash(const Installation& installation, const Root& root)
    : m_installation(installation), m_root(root), m_screen(root.path() + "/screen") {}

Splash::~Splash() {
    quit();
}

void Splash::setChinese(bool chinese) {
    const std::string path = m_root.path() + LANGUAGE;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    // Renamed into place: the splash reads it for every frame.
    std::ofstream(path + ".new") << "{\"selectedLanguage\":\"" << (chinese ? "zh" : "en") << "\"}";
    std::filesystem::rename(path + ".new", path);
    m_chinese = chinese;
}

void Splash::start(const std::optional<Texts>& texts) {
    quit();
    std::filesystem::remove(recordPath());
    // The first picture of a device that is switched on is blank.
    m_firstFrame = m_screen.newest() + 2;
    launch(texts);
}

/// This program's own, with the libraries that stand between the splash and the system.
std::vector<std::string> Splash::environment() const {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        if (!beginsWith(text, "VIRTUAL_DEVICE_") && !beginsWith(text, "LD_PRELOAD=")) {
            entries.push_back(text);
        }
    }
    std::string libraries = m_installation.virtualDevice;
    if (m_recording) {
        libraries += ":" + m_installation.recorder;
        entries.push_back("CAIRO_RECORDER_LOG=" + recordPath());
    }
    entries.push_back("LD_PRELOAD=" + libraries);
    entries.push_back("VIRTUAL_DEVICE_ROOT=" + m_root.path());
    return entries;
}

void Splash::launch(const std::optional<Texts>& texts) {
    std::vector<std::string> arguments = {m_installation.bootlume};
    if (texts) {
        arguments.push_back(texts->title);
        arguments.push_back(texts->lines);
    }
    std::vector<std::string> variables = environment();
    const std::vector<char*> argv = pointersTo(arguments);
    const std::vector<char*> envp = pointersTo(variables);
    const std::string log = m_root.path() + "/output";
    const int output = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    m_pid = fork();
    if (m_pid == 0) {
        become(m_installation.bootlume.c_str(), argv.data(), envp.data(), output,
               m_root.keepAliveFd());
    }
    const std::string why = std::strerror(errno);
    if (output >= 0) {
        close(output);
    }
    if (m_pid < 0) {
        throw std::runtime_error("cannot start a process: " + why);
    }
}

void Splash::quit() {
    if (m_pid <= 0) {
        return;
    }
    const client::SplashSocket socket(m_root.path() + "/tmp/.bootlume");
    client::QuitRequest request;
    request.limit = UNTIL_FORCE;
    request.waitForSplash = true;
    request.interrupted = [this] { return hasEnded(); };
    const client::QuitResult result = client::quitSplash(socket, request);
    // Where another program stands between, it has an end of its own to come to.
    for (auto waited = 0 * GRACE_STEP; result == client::QuitResult::GONE && waited < GRACE;
         waited += GRACE_STEP) {
        if (hasEnded()) {
            return;
        }
        std::this_thread::sleep_for(GRACE_STEP);
    }
    if (hasEnded()) {
        return;
    }
    kill(m_pid, SIGKILL);
    while (waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    m_pid = -1;
}

bool Splash::hasEnded() {
    if (m_pid > 0 && waitpid(m_pid, &m_status, WNOHANG) == m_pid) {
        m_pid = -1;
    }
    return m_pid <= 0;
}

void Splash::throwIfEnded() {
    if (!hasEnded()) {
        return;
    }
    if (WIFEXITED(m_status) && WEXITSTATUS(m_status) == 0) {
        throw EndedInOrder();
    }
    const std::string how = WIFEXITED(m_status)
                                ? "with status " + std::to_string(WEXITSTATUS(m_status))
                                : "by signal " + std::to_string(WTERMSIG(m_status));
    throw std::runtime_error("bootlume ended " + how + "; it wrote:\n" +
                             readAll(m_root.path() + "/output"));
}

Picture Splash::frame(std::uint64_t index) {
    // A turn later the same picture comes again, so that nobody waits for long, and one that was
    // missed on a busy machine is only late.
    for (std::uint64_t number = m_firstFrame + index % TURN;;) {
        throwIfInterrupted();
        if (const std::optional<Picture> picture = m_screen.copy(number)) {
            return *picture;
        }
        if (m_screen.newest() > number) {
            number += TURN;
            continue;
        }
        throwIfEnded();
        m_screen.waitForChange(LOOK_AGAIN);
    }
}

std::optional<Picture> Splash::next(std::uint64_t& seen) {
    throwIfInterrupted();
    throwIfEnded();
    if (m_screen.newest() == seen || m_screen.newest() < m_firstFrame) {
        m_screen.waitForChange(2 * LOOK_AGAIN);
    }
    const std::uint64_t newest = m_screen.newest();
    if (newest == seen || newest < m_firstFrame) {
        return {};
    }
    std::optional<Picture> picture = m_screen.copy(newest);
    if (picture) {
        seen = newest;
    }
    return picture;
}

} // namespace preview
