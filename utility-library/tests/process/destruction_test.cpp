#include "support/runner.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

/// A child that ends when the test lets it.
class TheEndOfARunner : public RunnerTest {
protected:
    TheEndOfARunner() : m_gate(m_folder.file("gate")) {
        EXPECT_EQ(mkfifo(m_gate.c_str(), 0600), 0);
        m_process = std::make_unique<brem::Process>(
            &m_dispatcher,
            std::vector<std::string>{
                m_folder.write("script", "#!/bin/sh\nread line < " + m_gate + "\nexit 3\n")},
            false);
    }

    void start() {
        m_process->start([this](int) { ++m_results; });
        EXPECT_TRUE(eventually([this] { return startedChild() != 0; }));
    }
    /// Blocks until the child is at the gate.
    void letGo() const {
        const int gate = open(m_gate.c_str(), O_WRONLY);
        EXPECT_EQ(write(gate, "\n", 1), 1);
        close(gate);
    }
    bool childEnded() const {
        for (const std::string& text : texts()) {
            if (text.compare(0, 14, "child exited: ") == 0) {
                return true;
            }
        }
        return false;
    }

    std::string m_gate;
    std::atomic<int> m_results{0};
    std::unique_ptr<brem::Process> m_process;
};

TEST_F(TheEndOfARunner, WaitsForAChildThatStillRuns) {
    start();
    std::thread gatekeeper([this] { letGo(); });
    m_process.reset();
    EXPECT_TRUE(childEnded());
    EXPECT_FALSE(hasChild());
    gatekeeper.join();
    m_dispatcher.shutdown();
    runDispatcher();
    EXPECT_EQ(m_results, 0) << "a runner that is gone called back";
}

TEST_F(TheEndOfARunner, DropsAResultThatIsStillQueued) {
    start();
    letGo();
    EXPECT_TRUE(eventually([this] { return m_dispatcher.size() == 1; }));
    m_process.reset();
    m_dispatcher.shutdown();
    runDispatcher();
    EXPECT_EQ(m_results, 0);
}

TEST_F(TheEndOfARunner, MayComeFromItsOwnCallback) {
    int result = NO_RESULT;
    m_process->start([&](int code) {
        result = code;
        m_process.reset();
        m_dispatcher.stop();
    });
    std::thread gatekeeper([this] { letGo(); });
    runDispatcher();
    gatekeeper.join();
    EXPECT_EQ(result, 3);
    EXPECT_FALSE(m_process);
}

TEST_F(TheEndOfARunner, MayComeOnAnotherThreadThanTheDispatchers) {
    // Again and again, so that the end falls before, into and after the result's delivery.
    std::thread loop([this] { runDispatcher(); });
    for (int i = 0; i < 50; ++i) {
        std::atomic<bool> called{false};
        std::atomic<bool> over{false};
        {
            brem::Process process(&m_dispatcher, {"/bin/true"}, false);
            process.start([&](int) {
                called = true;
                std::this_thread::yield();
                EXPECT_FALSE(over) << "a callback outlasted its runner";
            });
            for (int pause = 0; pause < i * 20 && !called; ++pause) {
                std::this_thread::yield();
            }
        }
        over = true;
    }
    m_dispatcher.stop();
    loop.join();
    EXPECT_FALSE(hasChild());
}

TEST_F(TheEndOfARunner, MayFollowThatOfItsDispatcher) {
    // The child ends before, during and after the dispatcher's end.
    for (int i = 0; i < 3; ++i) {
        auto dispatcher = std::make_unique<brem::Dispatcher>();
        std::atomic<int> results{0};
        auto process = std::make_unique<brem::Process>(
            dispatcher.get(), std::vector<std::string>{m_folder.file("script")}, false);
        const std::size_t linesBefore = lines().size();
        process->start([&](int) { ++results; });
        EXPECT_TRUE(eventually([&] { return lines().size() >= linesBefore + 3; }));
        std::thread gatekeeper;
        if (i == 0) {
            letGo();
            EXPECT_TRUE(eventually([&] { return dispatcher->size() == 1; }));
        } else if (i == 1) {
            gatekeeper = std::thread([this] { letGo(); });
        }
        dispatcher.reset();
        if (i == 2) {
            letGo();
        }
        process.reset();
        if (gatekeeper.joinable()) {
            gatekeeper.join();
        }
        EXPECT_EQ(results, 0);
        EXPECT_FALSE(hasChild());
    }
}

TEST_F(TheEndOfARunner, IsNothingSpecialWhereItWasNeverStarted) {
    m_process->stop();
    m_process.reset();
    EXPECT_EQ(texts(), (std::vector<std::string>{"Function: stop"}));
}

} // namespace
