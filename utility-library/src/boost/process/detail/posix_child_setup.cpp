// This code runs in a forked child of a program with many threads. Only async-signal-safe calls may
// be made here: no allocation, no locks, no stdio, no exceptions, no destructors of the parent's
// objects. Another thread may have held any lock at the moment of the fork, and that thread does
// not exist here. Containers that were filled before the fork may be read.
#include "boost/process/detail/posix_child_setup.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace boost::process::detail {

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

[[noreturn]] void fail(const child_plan& plan, const char* step, const char* path = "") noexcept {
    const auto error = static_cast<std::size_t>(errno);
    text_buffer text;
    text.append(step);
    text.append(path);
    text.append(error < plan.reasons.size() ? plan.reasons[error].c_str() : ": Unknown error");
    text.append("\n");
    text.write_to(STDERR_FILENO);
    ::_exit(1); // not exit: the objects and buffers are the parent's
}

void require(const child_plan& plan, const char* failed_step) noexcept {
    if (failed_step != nullptr) {
        fail(plan, failed_step);
    }
}

void check_limit(const child_plan& plan) noexcept {
    for (const int d : plan.descriptors) {
        if (d >= plan.maxdescs) {
            text_buffer text;
            text.append("boost::process: Assertion `d < maxdescs' failed.\n");
            text.write_to(STDERR_FILENO);
            std::abort();
        }
    }
}

void use_file(const child_plan& plan, const stream_info& si, int d, bool output) noexcept {
    const int file = ::open(si.file_.c_str(), output ? O_WRONLY : O_RDONLY);
    if (file == -1) {
        fail(plan,
             output ? "boost::process::detail::setup_output: open(2) of "
                    : "boost::process::detail::setup_input: open(2) of ",
             si.file_.c_str());
    }
    file_handle handle(file);
    require(plan, handle.posix_remap(d));
    handle.release();
}

void set_up(const child_plan& plan, info_map& infos, bool output) noexcept {
    for (auto& [d, si] : infos) {
        switch (si.kind_) {
        case stream_info::close:
            ::close(d);
            break;
        case stream_info::inherit:
            ::fcntl(d, F_SETFD, 0); // kept over the execve, too
            break;
        case stream_info::redirect:
            require(plan, file_handle::posix_dup(si.target_, d));
            break;
        case stream_info::use_file:
            use_file(plan, si, d, output);
            break;
        case stream_info::use_pipe:
            require(plan, (output ? si.pipe_->wend() : si.pipe_->rend()).posix_remap(d));
            (output ? si.pipe_->rend() : si.pipe_->wend()).close();
            break;
        }
    }
}

/// One call for each gap between set-up descriptors; false if the kernel has no such call.
bool close_by_range(const child_plan& plan) noexcept {
#ifdef SYS_close_range
    unsigned first = 0;
    for (const int d : plan.descriptors) {
        const auto kept = static_cast<unsigned>(d);
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

/// -1 for a name that is no number.
int descriptor_number(const char* name) noexcept {
    int number = 0;
    for (; *name >= '0' && *name <= '9'; ++name) {
        number = number * 10 + (*name - '0');
    }
    return *name == '\0' ? number : -1;
}

/// Only the descriptors that are open; false if the folder of them cannot be read.
bool close_by_folder(const child_plan& plan) noexcept {
    const int folder = ::open("/proc/self/fd", O_RDONLY | O_DIRECTORY);
    if (folder == -1) {
        return false;
    }
    alignas(dirent64) char entries[2048];
    long length;
    while ((length = ::syscall(SYS_getdents64, folder, entries, sizeof entries)) > 0) {
        for (long at = 0; at < length;) {
            const auto* const entry = reinterpret_cast<const dirent64*>(entries + at);
            const int d = descriptor_number(entry->d_name);
            if (d != -1 && d != folder && plan.descriptors.count(d) == 0) {
                ::close(d);
            }
            at += entry->d_reclen;
        }
    }
    ::close(folder);
    return length == 0;
}

void close_others(const child_plan& plan) noexcept {
    if (close_by_range(plan) || close_by_folder(plan)) {
        return;
    }
    for (int d = 0; d < plan.maxdescs; ++d) {
        if (plan.descriptors.count(d) == 0) {
            ::close(d);
        }
    }
}

/// A macro, not a function: each text is put together by the compiler.
#define POSIX_SETUP_STEP(condition, call, name)                                                    \
    do {                                                                                           \
        if ((condition) && (call) == -1) {                                                         \
            fail(plan, "boost::process::detail::posix_setup: " name "(2) failed");                 \
        }                                                                                          \
    } while (false)

void set_up_process(const child_plan& plan) noexcept {
    const posix_context& ctx = plan.ctx;
    POSIX_SETUP_STEP(!ctx.chroot.empty(), ::chroot(ctx.chroot.c_str()), "chroot");
    POSIX_SETUP_STEP(ctx.gid != ::getgid(), ::setgid(ctx.gid), "setgid");
    POSIX_SETUP_STEP(ctx.egid != ::getegid(), ::setegid(ctx.egid), "setegid");
    POSIX_SETUP_STEP(ctx.uid != ::getuid(), ::setuid(ctx.uid), "setuid");
    POSIX_SETUP_STEP(ctx.euid != ::geteuid(), ::seteuid(ctx.euid), "seteuid");
    POSIX_SETUP_STEP(ctx.new_session, ::setsid(), "setsid");
    POSIX_SETUP_STEP(true, ::chdir(ctx.work_directory.c_str()), "chdir");
}

/// All handlers get their defaults, but SIGPIPE is ignored. If the parent and with it the reader is
/// gone, a write must not end the child or its program.
void reset_handlers() noexcept {
    for (int number = 1; number < NSIG; ++number) {
        ::signal(number, number == SIGPIPE ? SIG_IGN : SIG_DFL); // fails for SIGKILL and SIGSTOP
    }
}

} // namespace

void run_child(const child_plan& plan, const sigset_t& callers_mask) noexcept {
    reset_handlers();
    check_limit(plan); // before any descriptor is touched
    set_up(plan, plan.inputs, false);
    set_up(plan, plan.outputs, true);
    close_others(plan);
    set_up_process(plan);
    ::sigprocmask(SIG_SETMASK, &callers_mask, nullptr);
    ::execve(plan.executable.c_str(), plan.argv, plan.envp);
    fail(plan, "boost::process::detail::posix_start: execve(2) failed");
}

} // namespace boost::process::detail
