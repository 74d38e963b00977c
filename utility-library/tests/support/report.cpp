#include "support/report.h"

#include <filesystem>
#include <sstream>

namespace process = boost::process;

Report::Report(const std::string& text) {
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        m_lines.push_back(line);
    }
}

std::vector<std::string> Report::all(const std::string& word) const {
    std::vector<std::string> values;
    for (const std::string& line : m_lines) {
        if (line.compare(0, word.size() + 1, word + " ") == 0) {
            values.push_back(line.substr(word.size() + 1));
        }
    }
    return values;
}

std::string Report::one(const std::string& word) const {
    const std::vector<std::string> values = all(word);
    return values.size() == 1 ? values.front() : std::string();
}

std::map<int, std::string> Report::descriptors() const {
    std::map<int, std::string> descriptors;
    for (const std::string& value : all("descriptor")) {
        const std::size_t blank = value.find(' ');
        descriptors[std::stoi(value)] = value.substr(blank + 1);
    }
    return descriptors;
}

ReportFolder::ReportFolder() {
    std::filesystem::copy_file(REPORT_PROGRAM, program());
}

std::vector<std::string> ReportFolder::arguments(const std::vector<std::string>& requests) const {
    std::vector<std::string> arguments{program(), reportFile()};
    arguments.insert(arguments.end(), requests.begin(), requests.end());
    return arguments;
}

namespace {

template <class Context>
int runIn(const ReportFolder& folder, const Context& context,
          const std::vector<std::string>& requests) {
    const process::status status =
        process::launch(folder.program(), folder.arguments(requests), context).wait();
    return status.exited() ? status.exit_status() : -1;
}

} // namespace

int ReportFolder::run(const process::posix_context& context,
                      const std::vector<std::string>& requests) const {
    return runIn(*this, context, requests);
}

int ReportFolder::run(const process::basic_context& context,
                      const std::vector<std::string>& requests) const {
    return runIn(*this, context, requests);
}

std::string ReportFolder::talkThroughPipes() const {
    using process::stream_behavior;
    process::basic_context context;
    context.stdin_behavior = stream_behavior::capture;
    context.stdout_behavior = stream_behavior::capture;
    context.stderr_behavior = stream_behavior::capture;
    process::posix_child child =
        process::launch(program(), arguments({"read:0", "write:1:out", "write:2:err"}), context);
    child.get_stdin() << "in";
    child.get_stdin().close();
    std::string out;
    std::string err;
    std::getline(child.get_stdout(), out);
    std::getline(child.get_stderr(), err);
    const std::string in = child.wait().exit_status() == 0 ? report().one("read") : "no end";
    return in + out + err == "inouterr" ? "" : in + ", " + out + ", " + err;
}
