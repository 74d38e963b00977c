#include "process.h"

#include "boost/process/operations.h"
#include "thread_name.h"
#include "tracing.h"

#include <signal.h>

#include <exception>
#include <istream>
#include <iterator>
#include <utility>

namespace brem {

namespace process = boost::process;

namespace {

/// A longer line is logged in pieces of this size, so a child that writes no newline costs no more.
constexpr std::size_t LONGEST_LINE = 1 << 20;

/// Logs what the child writes to one stream, line by line, until its end.
void logLines(std::istream& stream, const std::string& prefix) {
    std::string line;
    const std::istreambuf_iterator<char> end;
    for (std::istreambuf_iterator<char> next(stream); next != end; ++next) {
        const bool ended = *next == '\n';
        if (ended || line.size() == LONGEST_LINE) {
            TRACE(Trace::LEVEL_DEBUG, prefix + line);
            line.clear();
        }
        if (!ended) {
            line += *next;
        }
    }
    if (!line.empty()) {
        TRACE(Trace::LEVEL_DEBUG, prefix + line);
    }
}

} // namespace

Process::Process(IDispatcher* dispatcher, const std::vector<std::string>& arguments, bool detached)
    : m_dispatcher(dispatcher->lifeline()),
      m_arguments(arguments),
      m_detached(detached),
      m_lifeline(std::make_shared<Lifeline<Process>>(this)) {}

Process::~Process() {
    m_lifeline->cut(); // a result that is still queued finds nobody
    joinThread();
}

void Process::start(ResultCallback callback) {
    TRACE(Trace::LEVEL_DEBUG, "Function: start");
    // Keeps sendResult() out: the result of a quick worker must find the thread that it joins.
    m_lifeline->call([&](Process&) {
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
        postResult(callback);
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
    postResult(callback);
    m_running = false;
}

void Process::runAttached() {
    process::basic_context context;
    context.stdout_behavior = process::stream_behavior::capture;
    context.stderr_behavior = process::stream_behavior::capture;
    const process::posix_child child = launch(context);
    logLines(child.get_stdout(), program() + ": stdout: ");
    // Only now, on purpose: a child that fills this pipe first stalls until it is ended.
    logLines(child.get_stderr(), program() + ": stderr: ");
    waitFor(child);
}

void Process::runDetached() {
    process::posix_context context;
    context.new_session = true;
    waitFor(launch(context));
}

template <class Context>
process::posix_child Process::launch(Context& context) {
    const std::string& path = program();
    context.environment = process::current_environment();
    TRACE(Trace::LEVEL_DEBUG, "start command: " + commandLine());
    process::posix_child child = process::launch(path, m_arguments, context);
    m_childPid = child.id();
    TRACE(Trace::LEVEL_DEBUG, "command started: " << TRACE_VALUE(m_childPid));
    return child;
}

void Process::waitFor(const process::posix_child& child) {
    const process::status status = child.wait();
    m_result = status.exited() ? status.exit_status() : -1;
    TRACE(Trace::LEVEL_DEBUG, "child exited: " + program() << TRACE_VALUE(m_result));
    m_childPid = -1;
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

void Process::postResult(const ResultCallback& callback) {
    // By now the dispatcher may be gone, and later this runner.
    m_dispatcher->call([&](IDispatcher& dispatcher) {
        dispatcher.post([lifeline = m_lifeline, callback] {
            lifeline->call([&](Process& self) { self.sendResult(callback); });
        });
    });
}

void Process::sendResult(const ResultCallback& callback) {
    TRACE(Trace::LEVEL_DEBUG, "Function: sendResult");
    joinThread();
    if (callback) {
        callback(m_result); // may end this runner
    }
}

void Process::joinThread() {
    if (m_thread && m_thread->joinable()) {
        m_thread->join();
        m_thread.reset();
    }
}

} // namespace brem
