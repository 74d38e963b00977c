#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

/// Opened once; any thread may wait for that.
class Latch {
public:
    void open() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_opened.notify_all();
    }

    /// False if it is still closed after so long.
    bool waitFor(std::chrono::seconds longest) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_opened.wait_for(lock, longest, [this] { return m_open; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_opened;
    bool m_open = false;
};
