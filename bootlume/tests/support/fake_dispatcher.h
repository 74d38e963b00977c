#pragma once

#include "idispatcher.h"

#include <atomic>

/// Counts what it is asked for, and does nothing.
class FakeDispatcher : public brem::IDispatcher {
public:
    void run() override {}
    void post(Message) override { ++posts; }
    void postDelayed(std::chrono::milliseconds, Message) override { ++posts; }
    void postDelayed(std::chrono::seconds, Message) override { ++posts; }
    void postDelayed(std::chrono::minutes, Message) override { ++posts; }
    void stop() override { ++stops; }
    void clear() override {}
    std::size_t size() override { return 0; }
    void shutdown() override {}

    std::atomic<int> posts{0};
    std::atomic<int> stops{0};
};
