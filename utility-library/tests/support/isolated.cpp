#include "support/isolated.h"

#include <gtest/gtest.h>

#include <grp.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

// Where lines are counted, a copy that ends without exit() must hand over its counts by itself.
extern "C" void __gcov_dump() __attribute__((weak));

namespace {

constexpr int FAILED = 91;
constexpr int SKIPPED = 92;
constexpr std::size_t NOTES_SIZE = 1 << 16;

/// Collects what fails into memory that both processes see: the copy may lose its descriptors.
class Notes : public testing::EmptyTestEventListener {
public:
    explicit Notes(char* text) : m_text(text) {}

    void OnTestPartResult(const testing::TestPartResult& result) override {
        std::string note = result.message();
        if (result.file_name() != nullptr) {
            note = std::string(result.file_name()) + ":" + std::to_string(result.line_number()) +
                   ": " + note;
        }
        std::strncat(m_text, (note + "\n").c_str(), NOTES_SIZE - 1 - std::strlen(m_text));
    }

private:
    char* m_text;
};

[[noreturn]] void runCopy(const std::function<void()>& body, char* notes) {
    auto& listeners = testing::UnitTest::GetInstance()->listeners();
    delete listeners.Release(listeners.default_result_printer());
    listeners.Append(new Notes(notes));
    try {
        body();
    } catch (const std::exception& e) {
        ADD_FAILURE() << "thrown: " << e.what();
    }
    if (__gcov_dump != nullptr) {
        __gcov_dump();
    }
    _exit(testing::Test::HasFailure() ? FAILED : testing::Test::IsSkipped() ? SKIPPED : 0);
}

bool installFilter(std::vector<sock_filter> steps) {
    const sock_fprog program{static_cast<unsigned short>(steps.size()), steps.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

} // namespace

void isolated(const std::function<void()>& body) {
    void* const shared =
        mmap(nullptr, NOTES_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    auto* const notes = static_cast<char*>(shared);
    const pid_t pid = fork();
    if (pid == 0) {
        runCopy(body, notes);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    const std::string text = notes;
    munmap(shared, NOTES_SIZE);
    if (WIFEXITED(status) && WEXITSTATUS(status) == SKIPPED) {
        GTEST_SKIP() << text;
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status << '\n'
                                                               << text;
}

bool becomeUnprivileged() {
    const auto id = static_cast<id_t>(1000000 + getpid());
    return geteuid() == 0 && chdir("/") == 0 && setgroups(0, nullptr) == 0 && setgid(id) == 0 &&
           setuid(id) == 0;
}

bool refuseSystemCall(long number, int error) {
    return installFilter({
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(number), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    });
}

bool endAtCloseAbove(unsigned descriptor) {
    return installFilter({
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_close, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)),
        BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, descriptor, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    });
}

void limitDescriptors(unsigned long limit) {
    rlimit limits{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limits), 0);
    limits.rlim_cur = limit;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limits), 0);
}

ScratchFolder::ScratchFolder() {
    m_path = (std::filesystem::temp_directory_path() / "bootlume-test-XXXXXX").string();
    if (mkdtemp(m_path.data()) == nullptr || chmod(m_path.c_str(), 0777) != 0) {
        throw std::runtime_error("no folder for the test: " + m_path);
    }
    m_path = std::filesystem::canonical(m_path).string();
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string ScratchFolder::write(const std::string& name, const std::string& text,
                                 mode_t mode) const {
    const std::string path = file(name);
    std::ofstream(path, std::ios::binary) << text;
    chmod(path.c_str(), mode);
    return path;
}

std::string contentsOf(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}
