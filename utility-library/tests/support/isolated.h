#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

/// Runs the body in a forked copy of the test program, where it may change limits, ids, descriptors
/// and signals. What fails or is skipped in there fails or skips the calling test.
void isolated(const std::function<void()>& body);

/// Lets go of root for good, for an id of its own, which no other process has, and for the
/// directory "/", which that id may enter. False where the caller is not root.
bool becomeUnprivileged();

/// Makes the kernel refuse a system call with an error, for the process and all that it starts.
/// False where that cannot be arranged.
bool refuseSystemCall(long number, int error);

/// Makes the kernel end the process, and all that it starts, where a close of a descriptor above
/// this one is asked for. False where that cannot be arranged.
bool endAtCloseAbove(unsigned descriptor);

/// Sets the soft limit of descriptors.
void limitDescriptors(unsigned long limit);

/// A folder of its own, that anybody may enter and write to, removed with all that it holds.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();

    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }
    /// Makes a file; returns its path.
    std::string write(const std::string& name, const std::string& text, mode_t mode = 0755) const;

private:
    std::string m_path;
};

/// Empty where the file cannot be read.
std::string contentsOf(const std::string& path);
