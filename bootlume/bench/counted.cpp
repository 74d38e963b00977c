// One operation, so many times: for counting instructions. What one costs is the difference between
// two runs, divided by the difference of their numbers; what grows, grows with the second number.
//
//   counted OPERATION COUNT [SIZE]
#include "dispatcher.h"
#include "display/language.h"
#include "process.h"
#include "tracing.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

void nothing(long count, long /*size*/) {
    for (volatile long i = 0; i < count; i = i + 1) {
    }
}

/// The test of a library statement that passed the level, with so many words configured.
void masks(long count, long size) {
    Trace::Log::s_configuration.masks.set(
        Trace::MaskWords::Words(static_cast<std::size_t>(size), 0x80004));
    long enabled = 0;
    for (long i = 0; i < count; ++i) {
        enabled += Trace::Log::isMaskEnabled(Trace::TRACE_MASK_DISPATCHER) ? 1 : 0;
    }
    if (enabled != 0) {
        std::abort();
    }
}

/// So many messages from one thread to another.
void post(long count, long /*size*/) {
    brem::Dispatcher dispatcher;
    long seen = 0;
    std::thread poster([&] {
        for (long i = 0; i < count; ++i) {
            dispatcher.post([&] {
                if (++seen == count) {
                    dispatcher.shutdown();
                }
            });
        }
    });
    dispatcher.run();
    poster.join();
}

/// Post and run on one thread while so many delayed messages wait.
void postWhileWaiting(long count, long size) {
    brem::Dispatcher dispatcher;
    for (long i = 0; i < size; ++i) {
        dispatcher.postDelayed(std::chrono::minutes(60), [] {});
    }
    for (long i = 0; i < count; ++i) {
        dispatcher.shutdown();
        dispatcher.run();
    }
}

/// Reading the language setting; the settings file is the caller's.
void language(long count, long /*size*/) {
    for (long i = 0; i < count; ++i) {
        paint::isChineseSelected();
    }
}

/// A child that writes so many lines, each of them logged.
void childLines(long count, long size) {
    Trace::Log::s_configuration.level = Trace::LEVEL_DEBUG;
    for (long i = 0; i < count; ++i) {
        brem::Dispatcher dispatcher;
        brem::Process process(&dispatcher, {"/usr/bin/seq", std::to_string(size)}, false);
        process.start([&](int) { dispatcher.stop(); });
        dispatcher.run();
    }
}

struct Operation {
    const char* name;
    void (*run)(long count, long size);
};

const Operation OPERATIONS[] = {
    {"nothing", nothing},   {"masks", masks},
    {"post", post},         {"post_while_waiting", postWhileWaiting},
    {"language", language}, {"child_lines", childLines},
};

} // namespace

int main(int argc, char** argv) {
    for (const Operation& operation : OPERATIONS) {
        if (argc > 2 && std::strcmp(argv[1], operation.name) == 0) {
            operation.run(std::atol(argv[2]), argc > 3 ? std::atol(argv[3]) : 0);
            return EXIT_SUCCESS;
        }
    }
    std::fputs("usage: counted OPERATION COUNT [SIZE]\noperations:\n", stderr);
    for (const Operation& operation : OPERATIONS) {
        std::fprintf(stderr, "  %s\n", operation.name);
    }
    return 2;
}
