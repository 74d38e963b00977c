#pragma once

#include <memory>
#include <mutex>

namespace brem {

/// Lets other threads reach an object that may be gone by then.
///
/// The object owns a Lifeline and cuts it first thing in its destructor; whoever may outlive the
/// object keeps the End. Safe from any thread. A call through the End and cut() exclude each other:
/// once cut() has returned, no call is under way and none begins.
template <class T>
class Lifeline {
    struct Knot {
        std::mutex mutex;
        T* object;
    };

public:
    /// The far end of a lifeline: copyable, and valid for as long as anybody holds it.
    class End {
    public:
        End() = default;

        /// Calls function(object) while the object is held alive; false where it is gone already.
        template <class Function>
        bool call(Function&& function) const {
            if (!m_knot) {
                return false;
            }
            const std::lock_guard<std::mutex> lock(m_knot->mutex);
            if (m_knot->object == nullptr) {
                return false;
            }
            function(*m_knot->object);
            return true;
        }

    private:
        friend class Lifeline;
        explicit End(std::shared_ptr<Knot> knot) : m_knot(std::move(knot)) {}

        std::shared_ptr<Knot> m_knot;
    };

    explicit Lifeline(T* object) : m_knot(std::make_shared<Knot>()) { m_knot->object = object; }
    ~Lifeline() { cut(); }

    Lifeline(const Lifeline&) = delete;
    Lifeline& operator=(const Lifeline&) = delete;

    End end() const { return End(m_knot); }

    /// Ends all reach to the object; waits for a call that is under way on another thread.
    void cut() {
        const std::lock_guard<std::mutex> lock(m_knot->mutex);
        m_knot->object = nullptr;
    }

private:
    std::shared_ptr<Knot> m_knot;
};

} // namespace brem
