#include "support/runner.h"

#include "tracing.h"

#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>

std::vector<LogLine> runnerLines(const std::string& log) {
    // Between the first column and the text lie the date, the process id, the thread and the level.
    const std::string source = "| utility-library/src/process.cpp:";
    std::vector<LogLine> lines;
    for (std::size_t begin = 0; begin < log.size();) {
        const std::size_t tail = log.find(source, begin);
        if (tail == std::string::npos) {
            break;
        }
        const std::size_t start = log.rfind("\n[", tail);
        const std::size_t line = start == std::string::npos || start < begin ? begin : start + 1;
        const std::size_t bar = log.find("\t| ", line);
        const std::size_t threadEnd = log.find(") ", log.find(") (", line) + 3);
        const std::size_t threadBegin = log.rfind('(', threadEnd) + 1;
        const std::string thread = log.substr(threadBegin, threadEnd - threadBegin);
        const std::string level = log.substr(threadEnd + 2, bar - threadEnd - 2);
        lines.push_back({thread.substr(thread.find_first_not_of(' ')),
                         level.substr(level.find_first_not_of(' ')),
                         log.substr(bar + 3, tail - bar - 3)});
        begin = log.find('\n', tail) + 1;
    }
    return lines;
}

std::vector<std::string> textsOf(const std::vector<LogLine>& lines) {
    std::vector<std::string> texts;
    for (const LogLine& line : lines) {
        texts.push_back(line.text);
    }
    return texts;
}

RunnerTest::RunnerTest() {
    Trace::Log::s_configuration.level = Trace::LEVEL_DEBUG;
    Trace::Log::s_disableColors = true;
    prctl(PR_SET_NAME, "bl-dispatcher", 0, 0, 0);
    setenv("TZ", "UTC", 1); // without it the C library finds its zone anew for every line
}

RunnerTest::~RunnerTest() {
    Trace::Log::s_configuration.level = Trace::LEVEL_INFO;
    Trace::Log::s_disableColors = false;
}

void RunnerTest::runDispatcher() {
    m_dispatcher.postDelayed(std::chrono::minutes(1), [this] { m_dispatcher.stop(); });
    m_dispatcher.run();
    m_dispatcher.clear();
}

int RunnerTest::run(brem::Process& process) {
    int result = NO_RESULT;
    process.start([&](int code) {
        result = code;
        m_dispatcher.stop();
    });
    runDispatcher();
    return result;
}

int RunnerTest::run(const std::vector<std::string>& arguments) {
    brem::Process process(&m_dispatcher, arguments, false);
    return run(process);
}

pid_t RunnerTest::startedChild() const {
    const std::string words = "command started: , m_childPid = ";
    pid_t pid = 0;
    for (const std::string& text : texts()) {
        if (text.compare(0, words.size(), words) == 0) {
            pid = std::stoi(text.substr(words.size()));
        }
    }
    return pid;
}

bool hasChild() {
    siginfo_t ignored;
    return waitid(P_ALL, 0, &ignored, WEXITED | WNOHANG | WNOWAIT) != -1 || errno != ECHILD;
}
