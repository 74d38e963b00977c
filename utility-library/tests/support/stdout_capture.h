#pragma once

#include <string>

/// Sends standard output into a file in memory until it is destroyed.
///
/// Bound to the thread that makes it; other threads may write to standard output meanwhile.
class StdoutCapture {
public:
    StdoutCapture();
    ~StdoutCapture();

    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    /// Everything that was written so far.
    std::string text() const;

private:
    int m_saved;
    int m_file;
};
