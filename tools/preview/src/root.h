/// \file
/// The folder that the splash takes for the device's root.
#pragma once

#include <sys/types.h>

#include <string>

namespace preview {

/// Without a name: a new folder that is gone when the program is, however it ends. A process waits
/// for the end of this program and of all that holds keepAliveFd(), and removes the folder then:
/// also after a crash or a SIGKILL.
///
/// With a name: that folder, made where it is missing, and left in its place. One program at a time
/// can have it.
///
/// Make it before the first thread. Throws std::runtime_error.
class Root {
public:
    explicit Root(const std::string& given = "");
    /// Waits until a folder without a name is gone.
    ~Root();

    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;

    const std::string& path() const { return m_path; }
    /// For children that use the folder: to be left open in them.
    int keepAliveFd() const { return m_keepAlive; }

private:
    void startRemover();

    std::string m_path;
    int m_keepAlive = -1;
    pid_t m_remover = -1;
};

} // namespace preview
