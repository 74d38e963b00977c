#pragma once

#include "dispatcher.h"
#include "process.h"
#include "support/isolated.h"
#include "support/stdout_capture.h"
#include "support/waiting.h"

#include <gtest/gtest.h>

#include <sys/types.h>

#include <string>
#include <vector>

/// One line of the process runner's log.
struct LogLine {
    std::string thread;
    std::string level;
    std::string text;
};

/// The runner's lines of a captured log, in their order.
std::vector<LogLine> runnerLines(const std::string& log);

/// Only their texts, levels left out.
std::vector<std::string> textsOf(const std::vector<LogLine>& lines);

/// A test whose thread is the owner of the runners and the dispatcher's.
class RunnerTest : public testing::Test {
protected:
    static constexpr int NO_RESULT = -1000;

    RunnerTest();
    ~RunnerTest() override;
    RunnerTest(const RunnerTest&) = delete;
    RunnerTest& operator=(const RunnerTest&) = delete;

    /// Starts the runner and runs the dispatcher until the result is there; NO_RESULT where none
    /// comes within a minute.
    int run(brem::Process& process);
    /// The same for a program that is run attached.
    int run(const std::vector<std::string>& arguments);
    /// Runs the dispatcher until it is stopped, or a minute has passed.
    void runDispatcher();
    /// What the runner has logged so far.
    std::vector<LogLine> lines() const { return runnerLines(m_log.text()); }
    std::vector<std::string> texts() const { return textsOf(lines()); }
    /// The process id that the latest "command started: " line names; 0 where there is none.
    pid_t startedChild() const;

    brem::Dispatcher m_dispatcher;
    ScratchFolder m_folder;

private:
    StdoutCapture m_log;
};

/// Whether the calling process has a child, ended or not.
bool hasChild();
