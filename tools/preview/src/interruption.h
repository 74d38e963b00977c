/// \file
/// Signals that end the program: they end it tidily.
#pragma once

#include <exception>

namespace preview {

/// Thrown by whoever waits, once a signal has asked for the end.
class Interrupted : public std::exception {
public:
    explicit Interrupted(int number) : m_number(number) {}
    int number() const { return m_number; }
    const char* what() const noexcept override { return "interrupted"; }

private:
    int m_number;
};

/// From here on SIGINT, SIGTERM and SIGHUP are only remembered.
void catchSignals();

/// The signal that asked for the end, or 0.
int caughtSignal();

void throwIfInterrupted();

/// Ends the process as the signal would have done.
[[noreturn]] void dieOf(int number);

} // namespace preview
