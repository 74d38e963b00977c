// This code runs in a forked child of a program with many threads. Only async-signal-safe calls may
// be made here: no allocation, no locks, no stdio, no exceptions, no destructors. Another thread
// may have held any lock at the moment of the fork, and that thread does not exist here.
#include "boost/process/detail/posix_child_setup.h"

#include "boost/process/detail/errors.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace boost {
namespace process {
namespace detail {

namespace {

/// Collects a text on the stack; what does not fit is cut.
class text_buffer {
public:
    void append(const char* piece) noexcept {
        while (*piece != '\0' && length_ < sizeof text_) {
            text_[length_++] = *piece++;
        }
    }
    void write_to(int descriptor) const noexcept {
        const ssize_t written = ::write(descriptor, text_, length_);
        static_cast<void>(written); // there is nowhere left to report to
    }

private:
    char text_[512];
    std::size_t length_ = 0;
};

[[noreturn]] void fail(const child_plan& plan, const char* text) noexcept {
    const int error = errno;
    ::signal(SIGPIPE, SIG_IGN); // a text that nobody reads must not change how the child ends
    text_buffer buffer;
    buffer.append(text);
    buffer.append(error >= 0 && error < plan.reason_count ? plan.reasons[error]
                                                          : ": Unknown error");
    buffer.append("\n");
    buffer.write_to(STDERR_FILENO);
    ::_exit(1); // since this is a forked child: the parent's objects and buffers are not its own
}

void require_below_limit(const child_plan& plan, int d) noexcept {
    if (d < plan.maxdescs) {
        return;
    }
    text_buffer buffer;
    buffer.append("boost::process: Assertion `d < maxdescs' failed.\n");
    buffer.write_to(STDERR_FILENO);
    std::abort();
}

void remap(const child_plan& plan, int source, int target) noexcept {
    if (source == target) {
        return;
    }
    if (::dup2(source, target) == -1) {
        fail(plan, REMAP_DUP_FAILED);
    }
    if (::close(source) == -1) {
        fail(plan, REMAP_CLOSE_FAILED);
    }
}

void use_file(const child_plan& plan, const descriptor_step& step) noexcept {
    const int file = ::open(step.path, step.open_flags);
    if (file == -1) {
        fail(plan, step.open_error);
    }
    remap(plan, file, step.descriptor);
}

void set_up_descriptor(const child_plan& plan, const descriptor_step& step) noexcept {
    require_below_limit(plan, step.descriptor);
    switch (step.action) {
    case descriptor_step::close:
        ::close(step.descriptor);
        break;
    case descriptor_step::inherit:
        ::fcntl(step.descriptor, F_SETFD, 0); // kept over the execve, too
        break;
    case descriptor_step::redirect:
        if (::dup2(step.source, step.descriptor) == -1) {
            fail(plan, DUP_FAILED);
        }
        break;
    case descriptor_step::use_file:
        use_file(plan, step);
        break;
    case descriptor_step::use_pipe:
        remap(plan, step.source, step.descriptor);
        ::close(step.other_end);
        break;
    }
}

bool is_kept(const child_plan& plan, int descriptor) noexcept {
    for (std::size_t i = 0; i < plan.kept_count; ++i) {
        if (plan.kept[i] == descriptor) {
            return true;
        }
    }
    return false;
}

/// One call for each gap between kept descriptors; false where the kernel has no such call.
bool close_by_range(const child_plan& plan) noexcept {
#ifdef SYS_close_range
    unsigned first = 0;
    for (std::size_t i = 0; i < plan.kept_count; ++i) {
        const auto kept = static_cast<unsigned>(plan.kept[i]);
        if (kept > first && ::syscall(SYS_close_range, first, kept - 1, 0U) == -1) {
            return false;
        }
        first = kept + 1;
    }
    return ::syscall(SYS_close_range, first, UINT_MAX, 0U) == 0;
#else
    static_cast<void>(plan);
    return false;
#endif
}

/// The kernel's record of one folder entry.
struct folder_record {
    std::uint64_t inode;
    std::int64_t offset;
    unsigned short length;
    unsigned char type;
    char name[1];
};

int descriptor_number(const char* name) noexcept {
    int number = 0;
    for (; *name >= '0' && *name <= '9'; ++name) {
        number = number * 10 + (*name - '0');
    }
    return *name == '\0' ? number : -1;
}

/// Only the descriptors that are open; false where the folder of them cannot be read.
bool close_by_folder(const child_plan& plan) noexcept {
    const int folder = ::open("/proc/self/fd", O_RDONLY | O_DIRECTORY);
    if (folder == -1) {
        return false;
    }
    alignas(folder_record) char records[2048];
    for (;;) {
        const long length = ::syscall(SYS_getdents64, folder, records, sizeof records);
        if (length <= 0) {
            ::close(folder);
            return length == 0;
        }
        for (long at = 0; at < length;) {
            const char* const record = records + at;
            const int descriptor = descriptor_number(record + offsetof(folder_record, name));
            if (descriptor >= 0 && record[offsetof(folder_record, name)] != '\0' &&
                descriptor != folder && !is_kept(plan, descriptor)) {
                ::close(descriptor);
            }
            unsigned short record_length;
            std::memcpy(&record_length, record + offsetof(folder_record, length),
                        sizeof record_length);
            at += record_length;
        }
    }
}

void close_others(const child_plan& plan) noexcept {
    if (close_by_range(plan) || close_by_folder(plan)) {
        return;
    }
    for (int descriptor = 0; descriptor < plan.maxdescs; ++descriptor) {
        if (!is_kept(plan, descriptor)) {
            ::close(descriptor);
        }
    }
}

/// A macro, not a function: each text is put together by the compiler.
#define POSIX_SETUP_STEP(plan, condition, call, name)                                              \
    do {                                                                                           \
        if ((condition) && (call) == -1) {                                                         \
            fail(plan, "boost::process::detail::posix_setup: " name "(2) failed");                 \
        }                                                                                          \
    } while (false)

void set_up_process(const child_plan& plan) noexcept {
    POSIX_SETUP_STEP(plan, *plan.chroot != '\0', ::chroot(plan.chroot), "chroot");
    POSIX_SETUP_STEP(plan, plan.gid != ::getgid(), ::setgid(plan.gid), "setgid");
    POSIX_SETUP_STEP(plan, plan.egid != ::getegid(), ::setegid(plan.egid), "setegid");
    POSIX_SETUP_STEP(plan, plan.uid != ::getuid(), ::setuid(plan.uid), "setuid");
    POSIX_SETUP_STEP(plan, plan.euid != ::geteuid(), ::seteuid(plan.euid), "seteuid");
    POSIX_SETUP_STEP(plan, plan.new_session, ::setsid(), "setsid");
    POSIX_SETUP_STEP(plan, true, ::chdir(plan.work_directory), "chdir");
}

void restore_signals(const child_plan& plan) noexcept {
    struct sigaction defaults;
    std::memset(&defaults, 0, sizeof defaults);
    defaults.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal) {
        ::sigaction(signal, &defaults, nullptr); // fails for those that cannot be handled
    }
    ::sigprocmask(SIG_SETMASK, &plan.caller_mask, nullptr);
}

} // namespace

void run_child(const child_plan& plan) noexcept {
    for (std::size_t i = 0; i < plan.step_count; ++i) {
        set_up_descriptor(plan, plan.steps[i]);
    }
    close_others(plan);
    set_up_process(plan);
    restore_signals(plan);
    ::execve(plan.executable, plan.argv, plan.envp);
    fail(plan, "boost::process::detail::posix_start: execve(2) failed");
}

} // namespace detail
} // namespace process
} // namespace boost
