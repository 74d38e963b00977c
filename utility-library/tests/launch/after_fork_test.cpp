// The allocator, the locks and all else that is not async-signal-safe, watched between fork and
// execve: a child that uses one of them ends with WATCH_STATUS. Not for builds with sanitizers,
// which bring an allocator and locks of their own.
#include "support/isolated.h"
#include "support/report.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace process = boost::process;
using process::stream_behavior;

namespace {

constexpr int WATCH_STATUS = 77;
bool armed = true;
bool forked = false; ///< set in every child that is forked while armed, gone after its execve

/// Ends a forked child that calls something which another thread's lock may block for ever.
void watch(const char* call) {
    if (forked) {
        const ssize_t ignored = write(STDERR_FILENO, call, strlen(call));
        static_cast<void>(ignored);
        _exit(WATCH_STATUS);
    }
}

/// Ten threads that allocate, lock and write all the time.
class BusyThreads {
public:
    BusyThreads() {
        for (int i = 0; i < 10; ++i) {
            m_threads.emplace_back([this] { work(); });
        }
    }
    ~BusyThreads() {
        m_busy = false;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }

private:
    void work() {
        while (m_busy) {
            std::vector<std::string> texts;
            for (std::size_t i = 0; i < 50; ++i) {
                texts.emplace_back(100 * i, 'x');
            }
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_last.swap(texts);
        }
    }

    std::atomic<bool> m_busy{true};
    std::mutex m_mutex;
    std::vector<std::string> m_last;
    std::vector<std::thread> m_threads;
};

/// How a forked copy of the test ends that runs the body and nothing else.
int statusOfFork(const std::function<void()>& body) {
    const pid_t pid = fork();
    if (pid == 0) {
        body();
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int codeOf(const std::string& program, const process::posix_context& context) {
    const process::status status = process::launch(program, {program}, context).wait();
    return status.exited() ? status.exit_status() : -1;
}

process::posix_context everyStream() {
    process::posix_context context;
    context.environment = process::current_environment();
    context.input_behavior.emplace(0, stream_behavior::silence);
    context.input_behavior.emplace(4, stream_behavior::capture);
    context.output_behavior.emplace(1, stream_behavior::capture);
    context.output_behavior.emplace(2, stream_behavior::silence);
    context.output_behavior.emplace(5, stream_behavior::redirect_to_stdout);
    context.output_behavior.emplace(6, stream_behavior::close);
    context.new_session = true;
    return context;
}

class TheWatch : public testing::Test {
protected:
    static void SetUpTestSuite() {
        pthread_atfork(nullptr, nullptr, [] { forked = armed; });
    }
};

TEST_F(TheWatch, SeesAnAllocationALockAndStdioInAForkedChild) {
    static std::mutex mutex;
    static void* volatile memory = nullptr;
    EXPECT_EQ(statusOfFork([] {}), 0);
    EXPECT_EQ(statusOfFork([] { memory = malloc(1); }), WATCH_STATUS);
    EXPECT_EQ(statusOfFork([] { memory = calloc(1, 1); }), WATCH_STATUS);
    EXPECT_EQ(statusOfFork([] { memory = ::operator new(1); }), WATCH_STATUS);
    EXPECT_EQ(statusOfFork([] { free(memory); }), WATCH_STATUS);
    EXPECT_EQ(statusOfFork([] { mutex.lock(); }), WATCH_STATUS);
    EXPECT_EQ(statusOfFork([] { fputs("text", stdout); }), WATCH_STATUS);
    EXPECT_EQ(statusOfFork([] { throw 1; }), WATCH_STATUS);
}

TEST_F(TheWatch, SeesNothingInAChildThatBecomesItsProgram) {
    const BusyThreads threads;
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(codeOf("/bin/true", everyStream()), 0);
    }
}

TEST_F(TheWatch, SeesNothingInAChildThatFails) {
    const BusyThreads threads;
    process::posix_context wrongFolder = everyStream();
    wrongFolder.work_directory = "/missing";
    process::posix_context wrongTarget = everyStream();
    wrongTarget.output_behavior.emplace(7, stream_behavior::redirect_to(999));
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(codeOf("/missing/program", process::posix_context()), 1);
        ASSERT_EQ(codeOf("/bin/true", wrongFolder), 1);
        ASSERT_EQ(codeOf("/bin/true", wrongTarget), 1);
    }
}

TEST_F(TheWatch, SeesNothingInAChildThatTakesOtherIdsAndRoot) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may take other ids";
    }
    const BusyThreads threads;
    const ReportFolder folder;
    process::posix_context context = everyStream();
    context.chroot = folder.path();
    context.work_directory = "/";
    context.gid = context.egid = 54321;
    context.uid = context.euid = 54322;
    for (int i = 0; i < 20; ++i) {
        // Without its first argument the report program ends with 100.
        ASSERT_EQ(codeOf("/report", context), 100);
    }
}

TEST_F(TheWatch, SeesNothingInAChildThatClosesByTheFolderOrOneByOne) {
    armed = false; // the copy is forked, too, and is no child of the launch layer's
    isolated([] {
        armed = true;
        if (!refuseSystemCall(SYS_close_range, ENOSYS)) {
            GTEST_SKIP() << "no system call can be refused here";
        }
        const BusyThreads threads;
        for (int i = 0; i < 10; ++i) {
            ASSERT_EQ(codeOf("/bin/true", everyStream()), 0);
        }
        limitDescriptors(256);
        ASSERT_TRUE(refuseSystemCall(SYS_getdents64, EIO));
        for (int i = 0; i < 10; ++i) {
            ASSERT_EQ(codeOf("/bin/true", everyStream()), 0);
        }
    });
    armed = true;
}

/// The next definition of a function that is watched.
template <class Function>
Function* original(const char* name) {
    Function* function = nullptr;
    void* const symbol = dlsym(RTLD_NEXT, name);
    memcpy(&function, &symbol, sizeof function);
    return function;
}

} // namespace

// In place of the C library's own. Its allocator is reached by its other names, as looking it up
// would allocate.
extern "C" {
void* __libc_malloc(size_t size) noexcept;
void* __libc_calloc(size_t count, size_t size) noexcept;
void* __libc_realloc(void* memory, size_t size) noexcept;
void* __libc_memalign(size_t alignment, size_t size) noexcept;
void __libc_free(void* memory) noexcept;

void* malloc(size_t size) noexcept {
    watch("malloc");
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) noexcept {
    watch("calloc");
    return __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) noexcept {
    watch("realloc");
    return __libc_realloc(memory, size);
}
void* memalign(size_t alignment, size_t size) noexcept {
    watch("memalign");
    return __libc_memalign(alignment, size);
}
void* aligned_alloc(size_t alignment, size_t size) noexcept {
    watch("aligned_alloc");
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, size_t alignment, size_t size) noexcept {
    watch("posix_memalign");
    *memory = __libc_memalign(alignment, size);
    return *memory == nullptr ? ENOMEM : 0;
}
void free(void* memory) noexcept {
    watch("free");
    __libc_free(memory);
}

#define WATCHED(result, name, parameters, arguments)                                               \
    result name parameters {                                                                       \
        watch(#name);                                                                              \
        static const auto next = original<result parameters>(#name);                               \
        return next arguments;                                                                     \
    }
WATCHED(int, pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex))
WATCHED(int, pthread_mutex_trylock, (pthread_mutex_t * mutex), (mutex))
WATCHED(int, pthread_mutex_unlock, (pthread_mutex_t * mutex), (mutex))
WATCHED(int, pthread_rwlock_rdlock, (pthread_rwlock_t * lock), (lock))
WATCHED(int, pthread_rwlock_wrlock, (pthread_rwlock_t * lock), (lock))
WATCHED(int, pthread_cond_signal, (pthread_cond_t * condition), (condition))
WATCHED(int, pthread_cond_broadcast, (pthread_cond_t * condition), (condition))
WATCHED(int, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex),
        (condition, mutex))
WATCHED(int, pthread_once, (pthread_once_t * once, void (*routine)()), (once, routine))
WATCHED(int, fputs, (const char* text, FILE* file), (text, file))
WATCHED(int, fflush, (FILE * file), (file))
WATCHED(size_t, fwrite, (const void* data, size_t size, size_t count, FILE* file),
        (data, size, count, file))
WATCHED(char*, strerror, (int error), (error))
WATCHED(char*, getenv, (const char* name), (name))
}
