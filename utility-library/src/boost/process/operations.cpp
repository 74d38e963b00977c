#include "boost/process/operations.h"

#include "boost/process/detail/posix_ops.h"

#include <unistd.h>

#include <cassert>

namespace boost::process {

posix_child launch(const std::string& executable, const std::vector<std::string>& arguments,
                   const basic_context& ctx) {
    posix_context full(ctx.work_directory);
    full.input_behavior.emplace(STDIN_FILENO, ctx.stdin_behavior);
    full.output_behavior.emplace(STDOUT_FILENO, ctx.stdout_behavior);
    full.output_behavior.emplace(STDERR_FILENO, ctx.stderr_behavior);
    full.environment = ctx.environment;
    return launch(executable, arguments, full);
}

posix_child launch(const std::string& executable, const std::vector<std::string>& args,
                   const posix_context& ctx) {
    assert(!args.empty());
    assert(!ctx.work_directory.empty());
    detail::info_map inputs = detail::make_infos(ctx.input_behavior, false);
    detail::info_map outputs = detail::make_infos(ctx.output_behavior, true);
    const pid_t pid = detail::posix_start(executable, args, ctx, inputs, outputs);
    return posix_child(pid, inputs, outputs);
}

} // namespace boost::process
