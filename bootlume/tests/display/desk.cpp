#include "desk.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace desk {

namespace {

const char* variable(const char* name) {
    const char* const value = std::getenv(name);
    if (value == nullptr) {
        std::fprintf(stderr, "%s is not set: run this test through ctest\n", name);
        std::exit(1);
    }
    return value;
}

} // namespace

std::string path(const std::string& fixed) {
    return variable("VIRTUAL_DEVICE_ROOT") + fixed;
}

Calls calls() {
    Calls counted;
    std::ifstream log(variable("VIRTUAL_DEVICE_LOG"));
    const std::string own = "\"pid\":" + std::to_string(getpid());
    const std::string key = "\"call\":\"";
    for (std::string line; std::getline(log, line);) {
        std::string packed;
        for (const char c : line) {
            if (c != ' ') {
                packed += c;
            }
        }
        const auto begin = packed.find(key);
        if (packed.find(own + ",") == std::string::npos || begin == std::string::npos) {
            continue;
        }
        const auto name = begin + key.size();
        ++counted[packed.substr(name, packed.find('"', name) - name)];
    }
    return counted;
}

int made(const Calls& since, const std::string& call) {
    const Calls now = calls();
    const auto count = [&call](const Calls& calls) {
        const auto found = calls.find(call);
        return found == calls.end() ? 0 : found->second;
    };
    return count(now) - count(since);
}

} // namespace desk
