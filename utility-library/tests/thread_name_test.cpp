#include "thread_name.h"

#include "support/stdout_capture.h"

#include <gmock/gmock.h>

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <string>
#include <thread>

namespace {

thread_local bool s_refuseName = false;

std::string nameAfter(const char* wanted) {
    std::string name;
    std::thread([&] {
        brem::nameThisThread(wanted);
        char text[16] = "";
        prctl(PR_GET_NAME, text, 0, 0, 0);
        name = text;
    }).join();
    return name;
}

TEST(AThreadName, IsWhatTheKernelShows) {
    EXPECT_EQ(nameAfter("bl-dispatcher"), "bl-dispatcher");
}

TEST(AThreadName, IsCutTo15Characters) {
    EXPECT_EQ(nameAfter("abcdefghijklmno"), "abcdefghijklmno");
    EXPECT_EQ(nameAfter("abcdefghijklmnop"), "abcdefghijklmno");
}

TEST(AThreadName, ThatTheKernelRefusesIsToldAndTheThreadGoesOn) {
    const StdoutCapture output;
    bool wentOn = false;
    std::thread([&] {
        s_refuseName = true;
        brem::nameThisThread("name");
        wentOn = true;
    }).join();
    EXPECT_TRUE(wentOn);
    EXPECT_EQ(output.text(), "failed to set thread name\n");
}

} // namespace

/// Stands in front of the system's: refuses to name the thread that asked for it.
extern "C" int prctl(int option, ...) {
    va_list arguments;
    va_start(arguments, option);
    const unsigned long value = va_arg(arguments, unsigned long);
    va_end(arguments);
    if (option == PR_SET_NAME && s_refuseName) {
        return -1;
    }
    return static_cast<int>(syscall(SYS_prctl, option, value, 0, 0, 0));
}
