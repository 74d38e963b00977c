#include "process.h"

#include "boost/process/operations.h"
#include "thread_name.h"
#include "tracing.h"

#include <signal.h>

#include <exception>
#include <istream>

namespace brem {

namespace process = boost::process;

namespace {

/// Logs what the child writes to one stream, line by line, until its end.
void logLines(std::istream& stream, const std::string& prefix) {
    std::string line;
    while (std::getline(stream, line)) {
        TRACE(Trace::LEVEL_DEBUG, prefix + line);
    }
}

} // namespace

Process::Process(IDispatcher* dispatcher, const std::vector<std::string>& arguments, bool detached)
    : m_dispatcher(dispatcher), m_arguments(arguments), m_detached(detached), m_lifeline(this) {
    if (m_dispatcher != nullptr) {
        m_dispatcherLine = m_dispatcher->lifeline();
    }
}

Process::~Process() {
    m_lifeline.cut(); // a result that is still queued finds nobody
    joinThread();
}

void Process::start(ResultCallback callback) {
    TRACE(Trace::LEVEL_DEBUG, "Function: start");
    // Excludes sendResult(): a quick worker's result must find the thread that it is to join.
    m_lifeline.end().call([&](Process&) {
        if (m_thread) {
            TRACE(Trace::LEVEL_WARN, "already running");
        } else if (m_detached) {
            startDetached(callback);
        } else {
            startAttached(callback);
        }
    });
}

void Process::stop() {
    TRACE(Trace::LEVEL_DEBUG, "Function: stop");
    const pid_t pid = m_childPid;
    if (pid != -1) {
        kill(pid, SIGTERM);
    }
}

void Process::startAttached(const ResultCallback& callback) {
    startThread(&Process::runAttached, callback);
}

void Process::startDetached(const ResultCallback& callback) {
    startThread(&Process::runDetached, callback);
}

void Process::startThread(Body body, const ResultCallback& callback) {
    try {
        m_thread = std::make_unique<std::thread>(&Process::runThread, this, body, callback);
    } catch (const std::exception& e) { // no room for a thread: a result all the same
        TRACE(Trace::LEVEL_ERROR, "failed to start RTQ: " << TRACE_VALUE(e.what()));
        postResult(callback, false);
    }
}

void Process::runThread(Body body, const ResultCallback& callback) {
    nameThisThread("generator");
    m_running = true;
    try {
        (this->*body)();
    } catch (const std::exception& e) {
        TRACE(Trace::LEVEL_ERROR, "failed to start RTQ: " << TRACE_VALUE(e.what()));
    }
    postResult(callback, true);
    m_running = false;
}

void Process::runAttached() {
    const std::string& path = program();
    const std::string command = commandLine();
    process::basic_context context;
    context.environment = process::current_environment();
    context.stdin_behavior = process::stream_behavior::close;
    context.stdout_behavior = process::stream_behavior::capture;
    context.stderr_behavior = process::stream_behavior::capture;
    TRACE(Trace::LEVEL_DEBUG, "start command: " + command);

    process::posix_child child = process::launch(path, m_arguments, context);
    noteStart(child);
    logLines(child.get_stdout(), path + ": stdout: ");
    // Only now, on purpose: a child that fills this pipe first stalls until it is ended.
    logLines(child.get_stderr(), path + ": stderr: ");
    noteEnd(child);
}

void Process::runDetached() {
    const std::string& path = program();
    const std::string command = commandLine();
    process::posix_context context;
    context.environment = process::current_environment();
    context.new_session = true;
    TRACE(Trace::LEVEL_DEBUG, "start command: " + command);

    process::posix_child child = process::launch(path, m_arguments, context);
    noteStart(child);
    noteEnd(child);
}

const std::string& Process::program() const {
    return m_arguments.at(0);
}

std::string Process::commandLine() const {
    std::string text;
    for (const std::string& argument : m_arguments) {
        text += argument + " ";
    }
    return text;
}

void Process::noteStart(const process::posix_child& child) {
    m_childPid = child.id();
    TRACE(Trace::LEVEL_DEBUG, "command started: " << TRACE_VALUE(m_childPid));
}

void Process::noteEnd(process::posix_child& child) {
    const process::status status = child.wait();
    m_result = status.exited() ? status.exit_status() : -1;
    TRACE(Trace::LEVEL_DEBUG, "child exited: " + program() << TRACE_VALUE(m_result));
    m_childPid = -1;
}

void Process::postResult(const ResultCallback& callback, bool threadHeld) {
    const auto line = m_lifeline.end();
    // The dispatcher may be gone by now: then nobody waits for the result.
    m_dispatcherLine.call([&](IDispatcher& dispatcher) {
        dispatcher.post([line, threadHeld, callback] { sendResult(line, threadHeld, callback); });
    });
}

void Process::sendResult(const Lifeline<Process>::End& process, bool threadHeld,
                         const ResultCallback& callback) {
    std::int32_t result = -1;
    const bool alive = process.call([&](Process& self) {
        TRACE(Trace::LEVEL_DEBUG, "Function: sendResult");
        if (threadHeld) {
            self.joinThread();
        }
        result = self.m_result;
    });
    // Called with nothing held: it may start the process again, or destroy it.
    if (alive && callback) {
        callback(result);
    }
}

void Process::joinThread() {
    if (m_thread && m_thread->joinable()) {
        m_thread->join();
        m_thread.reset();
    }
}

} // namespace brem
