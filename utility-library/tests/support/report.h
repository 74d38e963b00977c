#pragma once

#include "boost/process/operations.h"
#include "support/isolated.h"

#include <map>
#include <string>
#include <vector>

/// What a started report program found itself with.
class Report {
public:
    explicit Report(const std::string& text);

    /// The values of all lines that begin with the word.
    std::vector<std::string> all(const std::string& word) const;
    /// The value of the only such line; empty where there is none.
    std::string one(const std::string& word) const;
    /// What each open descriptor was.
    std::map<int, std::string> descriptors() const;

private:
    std::vector<std::string> m_lines;
};

/// A folder with a copy of the report program, which any user can start, and its report.
class ReportFolder : public ScratchFolder {
public:
    ReportFolder();

    std::string program() const { return file("report"); }
    std::string reportFile() const { return file("report.txt"); }
    /// The argument vector, with requests.
    std::vector<std::string> arguments(const std::vector<std::string>& requests = {}) const;
    Report report() const { return Report(contentsOf(reportFile())); }

    /// Launches the program, waits, and returns the exit code; -1 where it did not exit.
    int run(const boost::process::posix_context& context,
            const std::vector<std::string>& requests = {}) const;
    int run(const boost::process::basic_context& context,
            const std::vector<std::string>& requests = {}) const;

    /// Captures the three standard streams of the program and talks to it through each; says what
    /// did not arrive, if anything.
    std::string talkThroughPipes() const;
};
