#pragma once

#include <utility>

namespace boost::process::detail {

/// Owns one descriptor; -1 when empty. Movable; bound to one thread.
class file_handle {
public:
    static constexpr int invalid_value() { return -1; }

    file_handle() noexcept = default;
    /// Takes over a valid descriptor.
    explicit file_handle(int handle);
    file_handle(file_handle&& other) noexcept
        : handle_(std::exchange(other.handle_, invalid_value())) {}
    file_handle& operator=(file_handle&& other) noexcept;
    ~file_handle();

    file_handle(const file_handle&) = delete;
    file_handle& operator=(const file_handle&) = delete;

    bool valid() const noexcept { return handle_ != invalid_value(); }
    /// The descriptor, which stays owned; there must be one.
    int get() const;
    /// Gives the descriptor up to the caller.
    int release();
    /// Closes the descriptor; there must be one.
    void close();

    // Both give the text of the step that failed, with its errno, or null. They neither throw nor
    // allocate: a forked child calls them.

    /// Duplicates a descriptor onto a number.
    static const char* posix_dup(int source, int target);
    /// Moves the owned descriptor onto a number, whatever was open there. A descriptor that has
    /// this number already is left as it is: it still closes at an execve if it did before.
    const char* posix_remap(int target);

private:
    int handle_ = invalid_value();
};

/// The two ends of a pipe, which both close at an execve.
class pipe {
public:
    /// Throws system_error.
    pipe();

    file_handle& rend() { return rend_; }
    file_handle& wend() { return wend_; }

private:
    file_handle rend_;
    file_handle wend_;
};

} // namespace boost::process::detail
