#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

/// A file in a folder of its own, both removed at the end. It is not there before it is written.
class ScratchFile {
public:
    ScratchFile() {
        const char* const root = std::getenv("TMPDIR");
        m_folder = std::string(root == nullptr ? "/tmp" : root) + "/utility-test-XXXXXX";
        if (mkdtemp(m_folder.data()) == nullptr) {
            throw std::runtime_error("no scratch folder at " + m_folder);
        }
        if (chmod(m_folder.c_str(), 0755) != 0) {
            throw std::runtime_error("the scratch folder cannot be opened to others");
        }
    }
    ~ScratchFile() {
        unlink(path().c_str());
        rmdir(path().c_str());
        rmdir(m_folder.c_str());
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    std::string path() const { return m_folder + "/trace_config"; }

    /// Writes the text in place: the file stays the same one.
    void write(const std::string& text) const { writeTo(path(), text); }

    /// Puts another file with this text in its place.
    void replace(const std::string& text) const {
        const std::string other = m_folder + "/other";
        writeTo(other, text);
        if (rename(other.c_str(), path().c_str()) != 0) {
            throw std::runtime_error("cannot replace " + path());
        }
    }

private:
    static void writeTo(const std::string& path, const std::string& text) {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        const ssize_t written = ::write(file, text.data(), text.size());
        close(file);
        if (written != static_cast<ssize_t>(text.size())) {
            throw std::runtime_error("cannot write " + path);
        }
    }

    std::string m_folder;
};
