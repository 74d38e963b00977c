#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// A running program that traces as it is told, with a standard output of the test's choice.
///
/// Everything waits with a deadline, and throws std::runtime_error past it.
class TraceProbe {
public:
    enum class Output { PIPE, TERMINAL };

    explicit TraceProbe(const std::string& configFile, Output output = Output::PIPE);
    ~TraceProbe();
    TraceProbe(const TraceProbe&) = delete;
    TraceProbe& operator=(const TraceProbe&) = delete;

    /// Gives a command, and returns its answer.
    std::string ask(const std::string& command);
    /// Lets the program leave main; returns its exit status, or -1 where it was killed.
    int end();

    /// What it handed to the system log, and how its trace ended.
    const std::vector<std::string>& events() const { return m_events; }
    /// What it has written to standard output so far; everything once it has ended.
    std::string output();
    /// Waits until the text is on standard output.
    void awaitOutput(const std::string& text);

private:
    void spawn(const std::string& configFile, int input, int output, int answers);
    void readOutput(int output);
    std::string readLine();

    pid_t m_pid = -1;
    int m_commands = -1;
    int m_answers = -1;
    std::string m_unread;
    std::vector<std::string> m_events;

    std::mutex m_mutex;
    std::condition_variable m_written;
    std::string m_output;
    std::thread m_reader;
};
