#include "support/trace_probe.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

extern char** environ;

namespace {

constexpr std::chrono::seconds DEADLINE{30};

struct Ends {
    int mine;
    int theirs;
};

/// A way from the program to the test, or the other way round.
Ends makePipe(bool fromTest) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe for the probe");
    }
    return fromTest ? Ends{ends[1], ends[0]} : Ends{ends[0], ends[1]};
}

Ends makeTerminal() {
    Ends ends{};
    if (openpty(&ends.mine, &ends.theirs, nullptr, nullptr, nullptr) != 0) {
        throw std::runtime_error("no terminal for the probe");
    }
    fcntl(ends.mine, F_SETFD, FD_CLOEXEC);
    fcntl(ends.theirs, F_SETFD, FD_CLOEXEC);
    return ends;
}

} // namespace

TraceProbe::TraceProbe(const std::string& configFile, Output output) {
    const Ends commands = makePipe(true);
    const Ends answers = makePipe(false);
    const Ends lines = output == Output::TERMINAL ? makeTerminal() : makePipe(false);
    spawn(configFile, commands.theirs, lines.theirs, answers.theirs);
    close(commands.theirs);
    close(answers.theirs);
    close(lines.theirs);
    m_commands = commands.mine;
    m_answers = answers.mine;
    m_reader = std::thread([this, lines] { readOutput(lines.mine); });
}

TraceProbe::~TraceProbe() {
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    if (m_commands >= 0) {
        close(m_commands);
    }
    m_reader.join();
    close(m_answers);
}

void TraceProbe::spawn(const std::string& configFile, int input, int output, int answers) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, answers, STDERR_FILENO);
    std::string program = TRACE_PROBE_PROGRAM;
    std::string file = configFile;
    char* const arguments[] = {program.data(), file.data(), nullptr};
    const int error = posix_spawn(&m_pid, program.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        throw std::runtime_error("the probe cannot be started");
    }
}

void TraceProbe::readOutput(int output) {
    char piece[65536];
    for (ssize_t length; (length = read(output, piece, sizeof piece)) > 0;) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_output.append(piece, static_cast<std::size_t>(length));
        m_written.notify_all();
    }
    close(output);
}

std::string TraceProbe::readLine() {
    for (;;) {
        const auto end = m_unread.find('\n');
        if (end != std::string::npos) {
            const std::string line = m_unread.substr(0, end);
            m_unread.erase(0, end + 1);
            return line;
        }
        pollfd wait{m_answers, POLLIN, 0};
        if (poll(&wait, 1, static_cast<int>(std::chrono::milliseconds(DEADLINE).count())) != 1) {
            throw std::runtime_error("the probe does not answer");
        }
        char piece[4096];
        const ssize_t length = read(m_answers, piece, sizeof piece);
        if (length <= 0) {
            throw std::runtime_error("the probe has ended; it said: " + m_unread);
        }
        m_unread.append(piece, static_cast<std::size_t>(length));
    }
}

std::string TraceProbe::ask(const std::string& command) {
    const std::string text = command + "\n";
    if (write(m_commands, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::runtime_error("the probe takes no command");
    }
    for (;;) {
        const std::string line = readLine();
        if (line.compare(0, 2, "* ") != 0) {
            return line;
        }
        m_events.push_back(line.substr(2));
    }
}

int TraceProbe::end() {
    close(m_commands);
    m_commands = -1;
    while (m_events.empty() || m_events.back().compare(0, 4, "end ") != 0) {
        const std::string line = readLine();
        m_events.push_back(line.compare(0, 2, "* ") == 0 ? line.substr(2) : "?? " + line);
    }
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = -1;
    m_reader.join();
    m_reader = std::thread([] {});
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string TraceProbe::output() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_output;
}

void TraceProbe::awaitOutput(const std::string& text) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_written.wait_for(lock, DEADLINE,
                            [&] { return m_output.find(text) != std::string::npos; })) {
        throw std::runtime_error("not on standard output: " + text);
    }
}
