// Calls that run a program or end the machine. The reboot programs are only ever run from below the
// root. execve may be called between fork and exec: nothing here allocates or locks.
#include "interpose.h"

#include "log.h"
#include "paths.h"
#include "real.h"

#include <cerrno>

using namespace virtual_device;

namespace {

/// `run` is called with the program to use and returns an errno value, if it returns.
template <typename Run>
int runMapped(const char* name, const char* path, Run run) {
    const MappedPath target(path);
    if (!target.mapped() && !target.forbidden()) {
        return run(path);
    }
    const char* program = target.forbidden() ? nullptr : target.get();
    // A program that is run does not return here: the line is written before, without a result.
    Record attempt("path", name);
    attempt.add("path", path);
    attempt.add("mapped", program);
    const int missing = program == nullptr ? ENOENT : real().access(program, X_OK) != 0 ? errno : 0;
    attempt.add("errno", missing);
    if (missing != 0) {
        attempt.add("error", strerrorname_np(missing));
    }
    attempt.write();
    return missing != 0 ? missing : run(program);
}

int failed(int error) {
    errno = error;
    return -1;
}

} // namespace

VIRTUAL_DEVICE_EXPORT int execve(const char* path, char* const arguments[],
                                 char* const environment[]) __THROW {
    return failed(runMapped("execve", path, [=](const char* program) {
        real().execve(program, arguments, environment);
        return errno;
    }));
}

VIRTUAL_DEVICE_EXPORT int execv(const char* path, char* const arguments[]) __THROW {
    return execve(path, arguments, environ);
}

VIRTUAL_DEVICE_EXPORT int execvpe(const char* file, char* const arguments[],
                                  char* const environment[]) __THROW {
    return failed(runMapped("execvpe", file, [=](const char* program) {
        real().execvpe(program, arguments, environment);
        return errno;
    }));
}

VIRTUAL_DEVICE_EXPORT int execvp(const char* file, char* const arguments[]) __THROW {
    return execvpe(file, arguments, environ);
}

VIRTUAL_DEVICE_EXPORT int posix_spawn(pid_t* pid, const char* path,
                                      const posix_spawn_file_actions_t* actions,
                                      const posix_spawnattr_t* attributes, char* const arguments[],
                                      char* const environment[]) {
    return runMapped("posix_spawn", path, [=](const char* program) {
        return real().posix_spawn(pid, program, actions, attributes, arguments, environment);
    });
}

VIRTUAL_DEVICE_EXPORT int posix_spawnp(pid_t* pid, const char* file,
                                       const posix_spawn_file_actions_t* actions,
                                       const posix_spawnattr_t* attributes, char* const arguments[],
                                       char* const environment[]) {
    return runMapped("posix_spawnp", file, [=](const char* program) {
        return real().posix_spawnp(pid, program, actions, attributes, arguments, environment);
    });
}

/// A desk is never rebooted.
VIRTUAL_DEVICE_EXPORT int reboot(int command) __THROW {
    Record record("path", "reboot");
    record.addHex("command", static_cast<std::uint32_t>(command));
    record.finish(-1, EPERM);
    return failed(EPERM);
}
