#pragma once

#include <mutex>

namespace brem {

/// Lets other threads reach an object that may be gone by then.
///
/// The object shares a lifeline with those who may outlive it, and cuts it first thing in its
/// destructor.
/// Safe from any thread. A call and cut() exclude each other: once cut() has returned, no call is
/// under way on another thread, and none begins. A call may call again, and may end the object.
template <class T>
class Lifeline {
public:
    explicit Lifeline(T* object) : m_object(object) {}

    Lifeline(const Lifeline&) = delete;
    Lifeline& operator=(const Lifeline&) = delete;

    /// Calls function(object), unless the object is gone.
    template <class Function>
    void call(Function&& function) {
        const std::lock_guard<std::recursive_mutex> lock(m_mutex);
        if (m_object != nullptr) {
            function(*m_object);
        }
    }

    void cut() {
        const std::lock_guard<std::recursive_mutex> lock(m_mutex);
        m_object = nullptr;
    }

private:
    std::recursive_mutex m_mutex;
    T* m_object;
};

} // namespace brem
