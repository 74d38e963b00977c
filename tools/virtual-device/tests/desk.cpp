#include "desk.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace desk {
namespace {

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

void applyEnvironment(const Environment& environment) {
    for (const auto& [name, value] : environment) {
        if (value.empty()) {
            unsetenv(name.c_str());
        } else {
            setenv(name.c_str(), value.c_str(), 1);
        }
    }
}

[[noreturn]] void becomeProbe(const Words& words, const Environment& environment, int input,
                              const std::string& top) {
    dup2(input, STDIN_FILENO);
    dup2(::open((top + "/stdout").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
    dup2(::open((top + "/stderr").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
    applyEnvironment(environment);
    std::vector<char*> arguments = {const_cast<char*>(PROBE)};
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    execv(PROBE, arguments.data());
    _exit(127);
}

} // namespace

std::string Result::operator[](std::size_t n) const {
    if (n >= lines.size()) {
        return "";
    }
    return lines[n].substr(lines[n].find(' ') + 1);
}

Desk::Desk() : Desk("") {}

Desk::Desk(const std::string& extra) {
    std::string form = testing::TempDir() + "virtual-device-XXXXXX";
    m_top = mkdtemp(form.data());
    m_root = m_top + "/root" + extra;
    std::filesystem::create_directories(m_root);
}

Desk::~Desk() {
    if (m_pid > 0) {
        finish();
    }
    std::filesystem::remove_all(m_top);
}

std::string Desk::log() const {
    return readFile(m_top + "/log");
}

std::vector<std::string> Desk::records(const Words& parts) const {
    std::vector<std::string> found;
    for (const std::string& line : linesOf(log())) {
        bool all = true;
        for (const std::string& part : parts) {
            all = all && line.find(part) != std::string::npos;
        }
        if (all) {
            found.push_back(line);
        }
    }
    return found;
}

void Desk::write(const std::string& fixed, const std::string& content, unsigned mode) const {
    std::filesystem::create_directories(std::filesystem::path(path(fixed)).parent_path());
    std::ofstream(path(fixed)) << content;
    chmod(path(fixed).c_str(), mode);
}

void Desk::start(const Words& words, const Environment& environment) {
    int pipe[2];
    ASSERT_EQ(0, ::pipe2(pipe, O_CLOEXEC));
    Environment all = {{"LD_PRELOAD", PRELOAD},
                       {"VIRTUAL_DEVICE_ROOT", m_root},
                       {"VIRTUAL_DEVICE_LOG", m_top + "/log"}};
    for (const auto& [name, value] : environment) {
        all[name] = value;
    }
    m_pid = fork();
    ASSERT_GE(m_pid, 0);
    if (m_pid == 0) {
        becomeProbe(words, all, pipe[0], m_top);
    }
    ::close(pipe[0]);
    m_input = pipe[1];
}

Result Desk::finish() {
    // The probe may be gone by now, or not want the byte.
    signal(SIGPIPE, SIG_IGN);
    const ssize_t ignored = ::write(m_input, "x", 1);
    static_cast<void>(ignored);
    int status = 0;
    waitpid(m_pid, &status, 0);
    ::close(m_input);
    m_pid = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status),
            linesOf(readFile(m_top + "/stdout")), readFile(m_top + "/stderr")};
}

Result Desk::run(const Words& words, const Environment& environment) {
    start(words, environment);
    return finish();
}

std::int64_t numberIn(const std::string& record, const std::string& key) {
    const std::size_t at = record.find("\"" + key + "\":");
    return at == std::string::npos
               ? -1
               : std::strtoll(record.c_str() + at + key.size() + 3, nullptr, 10);
}

std::string readFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

} // namespace desk
