#pragma once

namespace boost {
namespace process {
namespace detail {

/// Owns one descriptor; -1 when empty. Movable; bound to one thread.
class file_handle {
public:
    static constexpr int invalid_value() { return -1; }

    file_handle() noexcept = default;
    /// Takes over a valid descriptor.
    explicit file_handle(int handle);
    file_handle(file_handle&& other) noexcept : handle_(other.handle_) {
        other.handle_ = invalid_value();
    }
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

    /// Duplicates a descriptor onto a number. Throws system_error.
    static void posix_dup(int source, int target);
    /// Moves the owned descriptor onto a number, whatever was open there. Throws system_error.
    void posix_remap(int target);

private:
    int handle_ = invalid_value();
};

/// The two ends of a pipe.
struct pipe {
    /// Opens a pipe whose ends close at an execve and lie at `lowest` or above, out of the way of
    /// the numbers that a child sets up. Throws system_error.
    explicit pipe(int lowest);

    file_handle& rend() { return rend_; }
    file_handle& wend() { return wend_; }

private:
    file_handle rend_;
    file_handle wend_;
};

} // namespace detail
} // namespace process
} // namespace boost
