#include "boost/process/detail/posix_ops.h"

#include "boost/process/detail/errors.h"
#include "boost/process/detail/posix_child_setup.h"

#include <boost/function.hpp>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <set>

namespace boost::process::detail {

namespace {

/// The strings as execve takes them; they stay with their owner.
std::vector<char*> null_terminated(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> environment_block(const environment& variables) {
    std::vector<std::string> block;
    for (const auto& [name, value] : variables) {
        block.emplace_back(name).append("=").append(value);
    }
    return block;
}

/// What the error class appends to a text, for every errno. It is made at the first launch, since a
/// child could not ask for it.
const std::vector<std::string>& reasons() {
    static const std::vector<std::string> texts = [] {
        constexpr int ERRNO_COUNT = 134; // EHWPOISON, the kernel's last, is 133
        std::vector<std::string> all;
        for (int number = 0; number < ERRNO_COUNT; ++number) {
            const boost::system::system_error error(number, boost::system::system_category(), "_");
            all.emplace_back(error.what() + 1);
        }
        return all;
    }();
    return texts;
}

/// Moves an end of a pipe to a number that the child does not set up. If it had the right number
/// from the start, the child would leave it as it is, and it would close at the execve.
void move_off(file_handle& end, const std::set<int>& descriptors) {
    while (descriptors.count(end.get()) != 0) {
        const int next = ::fcntl(end.get(), F_DUPFD_CLOEXEC, end.get() + 1);
        if (next == -1) {
            throw_errno("boost::process::detail::posix_start: fcntl(2) failed");
        }
        end = file_handle(next);
    }
}

/// The descriptors that the child sets up, with all pipes moved off them.
std::set<int> reserve_descriptors(info_map& inputs, info_map& outputs) {
    std::set<int> descriptors;
    for (const info_map* infos : {&inputs, &outputs}) {
        for (const auto& info : *infos) {
            descriptors.insert(info.first);
        }
    }
    for (info_map* infos : {&inputs, &outputs}) {
        for (auto& info : *infos) {
            if (info.second.kind_ == stream_info::use_pipe) {
                move_off(info.second.pipe_->rend(), descriptors);
                move_off(info.second.pipe_->wend(), descriptors);
            }
        }
    }
    return descriptors;
}

/// Forks with all signals blocked, so that no handler of the parent's ever runs in the child.
pid_t fork_child(const boost::function<void(const sigset_t& callers_mask)>& run) {
    sigset_t all;
    sigset_t callers_mask;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &callers_mask);
    const pid_t pid = ::fork();
    if (pid == 0) {
        run(callers_mask);
    }
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &callers_mask, nullptr);
    errno = error;
    return pid;
}

} // namespace

pid_t posix_start(const std::string& executable, const std::vector<std::string>& args,
                  const posix_context& ctx, info_map& inputs, info_map& outputs) {
    const std::size_t nargs = args.size();
    assert(nargs > 0);
    const std::vector<char*> argv = null_terminated(args);
    const std::vector<std::string> block = environment_block(ctx.environment);
    const std::vector<char*> envp = null_terminated(block);
    const std::set<int> descriptors = reserve_descriptors(inputs, outputs);
    const long limit = ::sysconf(_SC_OPEN_MAX);

    const child_plan plan{executable,
                          argv.data(),
                          envp.data(),
                          inputs,
                          outputs,
                          descriptors,
                          limit == -1 ? 1024 : limit,
                          ctx,
                          reasons()};
    const pid_t pid = fork_child([&plan](const sigset_t& mask) { run_child(plan, mask); });
    if (pid == -1) {
        throw_errno("boost::process::detail::posix_start: fork(2) failed");
    }
    assert(pid > 0);
    return pid;
}

} // namespace boost::process::detail
