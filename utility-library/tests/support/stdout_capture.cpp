#include "support/stdout_capture.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

StdoutCapture::StdoutCapture() : m_saved(-1), m_file(memfd_create("stdout", MFD_CLOEXEC)) {
    std::fflush(stdout);
    m_saved = dup(STDOUT_FILENO);
    if (m_file < 0 || m_saved < 0 || dup2(m_file, STDOUT_FILENO) < 0) {
        throw std::runtime_error("standard output cannot be captured");
    }
}

StdoutCapture::~StdoutCapture() {
    std::fflush(stdout);
    dup2(m_saved, STDOUT_FILENO);
    if (testing::Test::HasFailure()) {
        // What failed was told on standard output too.
        std::fputs(text().c_str(), stderr);
    }
    close(m_saved);
    close(m_file);
}

std::string StdoutCapture::text() const {
    std::string text;
    char piece[65536];
    for (ssize_t length;
         (length = pread(m_file, piece, sizeof piece, static_cast<off_t>(text.size()))) > 0;) {
        text.append(piece, static_cast<std::size_t>(length));
    }
    return text;
}
