/// \file
/// A folder for one test, and the probe run on the virtual device with that folder as its root.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace desk {

using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

/// What a probe left behind.
struct Result {
    int status = -1;                ///< exit status, or 1000 + the signal
    std::vector<std::string> lines; ///< of standard output
    std::string errors;             ///< standard error

    /// The result of the n-th word, from 0; empty where the probe did not get that far.
    std::string operator[](std::size_t n) const;
};

/// Calls `look` until it is true; false where that takes longer than the deadline.
template <typename Look>
bool eventually(Look look, std::chrono::seconds deadline = std::chrono::seconds(30)) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!look()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
    }
    return true;
}

class Desk {
public:
    Desk();
    /// Below `extra`, which is made, in the test's own folder.
    explicit Desk(const std::string& extra);
    ~Desk();
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    const std::string& root() const { return m_root; }
    std::string path(const std::string& fixed) const { return m_root + fixed; }
    std::string log() const;
    /// Lines of the log that contain every one of `parts`.
    std::vector<std::string> records(const Words& parts) const;
    void write(const std::string& fixed, const std::string& content, unsigned mode = 0644) const;

    /// Runs the probe to its end. An empty value in `environment` takes the variable away.
    Result run(const Words& words, const Environment& environment = {});

    /// Starts a probe; finish() gives it a byte on its standard input and waits for its end.
    void start(const Words& words, const Environment& environment = {});
    pid_t pid() const { return m_pid; }
    Result finish();

private:
    std::string m_top;
    std::string m_root;
    pid_t m_pid = -1;
    int m_input = -1;
};

/// The value of a number in one line of the log, or -1.
std::int64_t numberIn(const std::string& record, const std::string& key);

std::string readFile(const std::string& path);

} // namespace desk
