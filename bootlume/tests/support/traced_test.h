#pragma once

#include "support/stdout_capture.h"
#include "support/trace_text.h"
#include "thread_name.h"
#include "tracing.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

/// Catches the trace of a test, which starts with all of the program's own lines, uncoloured, in a
/// thread named "main".
class TracedTest : public testing::Test {
protected:
    TracedTest() {
        brem::nameThisThread("main");
        Trace::Log::s_disableColors = true;
        Trace::Log::s_configuration.level = Trace::LEVEL_VERBOSE;
    }

    /// From the thread's name on, without the number of the source line.
    std::vector<std::string> lines() const {
        std::vector<std::string> result;
        for (const std::string& line : linesOf(m_capture.text())) {
            result.push_back(withoutLineNumber(withoutTimeAndProcess(line)));
        }
        return result;
    }

    static std::string line(const std::string& level, const std::string& text,
                            const std::string& file, const std::string& thread = "main") {
        return "(" + padded(thread, 16) + ") " + padded(level, 7) + ":\t| " + text +
               "| bootlume/src/" + file + ":";
    }

private:
    static std::string padded(const std::string& text, std::size_t width) {
        return std::string(width - text.size(), ' ') + text;
    }

    StdoutCapture m_capture;
};
