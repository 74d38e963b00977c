#include "boost/process/detail/posix_ops.h"

#include "boost/process/detail/errors.h"
#include "boost/process/detail/posix_child_setup.h"

#include <boost/system/system_error.hpp>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <limits>

namespace boost {
namespace process {
namespace detail {

namespace {

/// Strings as a null-terminated vector of pointers; the strings stay with their owner.
class pointer_vector {
public:
    explicit pointer_vector(const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            pointers_.push_back(const_cast<char*>(text.c_str())); // as execve declares it
        }
        pointers_.push_back(nullptr);
    }
    char* const* get() const { return pointers_.data(); }

private:
    std::vector<char*> pointers_;
};

std::vector<std::string> environment_block(const environment& variables) {
    std::vector<std::string> block;
    for (const auto& variable : variables) {
        block.push_back(variable.first + "=" + variable.second);
    }
    return block;
}

/// What the error class appends to a text for every errno, in plain memory, made at the first
/// launch.
const std::vector<const char*>& reasons() {
    constexpr int ERRNO_COUNT = 134; // EHWPOISON, the kernel's last, is 133
    static const std::vector<std::string> texts = [] {
        std::vector<std::string> all;
        all.reserve(ERRNO_COUNT);
        for (int number = 0; number < ERRNO_COUNT; ++number) {
            const boost::system::error_code code(number, boost::system::system_category());
            const std::string text = "text";
            all.push_back(boost::system::system_error(code, text).what() + text.size());
        }
        return all;
    }();
    static const std::vector<const char*> pointers = [] {
        std::vector<const char*> all;
        all.reserve(texts.size());
        for (const std::string& text : texts) {
            all.push_back(text.c_str());
        }
        return all;
    }();
    return pointers;
}

/// The steps of the child's descriptors, with the texts that they may need.
class step_list {
public:
    step_list(info_map& inputs, info_map& outputs) {
        errors_.reserve(inputs.size() + outputs.size()); // pointers into it must stay
        add(inputs, false);
        add(outputs, true);
        std::sort(kept_.begin(), kept_.end());
        kept_.erase(std::unique(kept_.begin(), kept_.end()), kept_.end());
    }

    void describe(child_plan& plan) const {
        plan.steps = steps_.data();
        plan.step_count = steps_.size();
        plan.kept = kept_.data();
        plan.kept_count = kept_.size();
    }

private:
    void add(info_map& infos, bool output) {
        for (auto& info : infos) {
            steps_.push_back(step(info.first, info.second, output));
            kept_.push_back(info.first);
        }
    }

    descriptor_step step(int descriptor, stream_info& si, bool output) {
        descriptor_step result{descriptor, descriptor_step::close, -1, -1, nullptr, 0, nullptr};
        switch (si.kind_) {
        case stream_info::close:
            break;
        case stream_info::inherit:
            result.action = descriptor_step::inherit;
            break;
        case stream_info::redirect:
            result.action = descriptor_step::redirect;
            result.source = si.target_;
            break;
        case stream_info::use_file:
            errors_.push_back(std::string("boost::process::detail::setup_") +
                              (output ? "output" : "input") + ": open(2) of " + si.file_);
            result.action = descriptor_step::use_file;
            result.path = si.file_.c_str();
            result.open_flags = output ? O_WRONLY : O_RDONLY;
            result.open_error = errors_.back().c_str();
            break;
        case stream_info::use_pipe:
            result.action = descriptor_step::use_pipe;
            result.source = (output ? si.pipe_->wend() : si.pipe_->rend()).get();
            result.other_end = (output ? si.pipe_->rend() : si.pipe_->wend()).get();
            break;
        }
        return result;
    }

    std::vector<descriptor_step> steps_;
    std::vector<int> kept_;
    std::vector<std::string> errors_;
};

int descriptor_limit() {
    const long limit = ::sysconf(_SC_OPEN_MAX);
    if (limit == -1) {
        return 1024;
    }
    return static_cast<int>(std::min<long>(limit, std::numeric_limits<int>::max()));
}

void describe_process(child_plan& plan, const posix_context& ctx) {
    plan.chroot = ctx.chroot.c_str();
    plan.work_directory = ctx.work_directory.c_str();
    plan.uid = ctx.uid;
    plan.euid = ctx.euid;
    plan.gid = ctx.gid;
    plan.egid = ctx.egid;
    plan.new_session = ctx.new_session;
}

/// Forks with all signals blocked, so that no handler of the parent's ever runs in the child.
pid_t fork_child(child_plan& plan) {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &plan.caller_mask);
    const pid_t pid = ::fork();
    if (pid == 0) {
        run_child(plan);
    }
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &plan.caller_mask, nullptr);
    errno = error;
    return pid;
}

} // namespace

pid_t posix_start(const std::string& executable, const std::vector<std::string>& args,
                  const posix_context& ctx, info_map& inputs, info_map& outputs) {
    const std::size_t nargs = args.size();
    assert(nargs > 0);
    const pointer_vector argv(args);
    const std::vector<std::string> block = environment_block(ctx.environment);
    const pointer_vector envp(block);
    const step_list steps(inputs, outputs);

    child_plan plan{};
    plan.executable = executable.c_str();
    plan.argv = argv.get();
    plan.envp = envp.get();
    plan.maxdescs = descriptor_limit();
    plan.reasons = reasons().data();
    plan.reason_count = static_cast<int>(reasons().size());
    steps.describe(plan);
    describe_process(plan, ctx);

    const pid_t pid = fork_child(plan);
    if (pid == -1) {
        throw_errno("boost::process::detail::posix_start: fork(2) failed");
    }
    assert(pid > 0);
    return pid;
}

} // namespace detail
} // namespace process
} // namespace boost
