/// \file
/// A folder that is gone when the program is, however it ends.
#pragma once

#include <sys/types.h>

#include <string>

namespace preview {

/// Makes a folder and starts a process that waits for the end of this program and of all that holds
/// keepAliveFd(), and removes the folder then: also after a crash or a SIGKILL.
/// Make it before the first thread. Throws std::runtime_error.
class TemporaryRoot {
public:
    TemporaryRoot();
    /// Waits until the folder is gone.
    ~TemporaryRoot();

    TemporaryRoot(const TemporaryRoot&) = delete;
    TemporaryRoot& operator=(const TemporaryRoot&) = delete;

    const std::string& path() const { return m_path; }
    /// For children that use the folder: to be left open in them.
    int keepAliveFd() const { return m_keepAlive; }

private:
    std::string m_path;
    int m_keepAlive = -1;
    pid_t m_remover = -1;
};

} // namespace preview
