/// \file
/// The log: one JSON object a line for each call.
#pragma once

#include <cstddef>
#include <cstdint>

namespace virtual_device {

/// Opens the log that the settings name, if any. Ends the process with status 3 where it cannot.
void openLog();

/// One line of the log, in a buffer of its own: no allocation and no lock, so that a call between
/// fork and exec or in a signal handler can be recorded. Nothing happens where there is no log.
/// Records keep errno as it was.
class Record {
public:
    /// Takes the time of the call's start. Texts are kept as pointers until write().
    Record(const char* kind, const char* call);

    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    void add(const char* key, std::int64_t value);
    void add(const char* key, const char* text);
    void addHex(const char* key, std::uint64_t value);
    /// Everything up to endObject() becomes the value of `key`.
    void beginObject(const char* key);
    void endObject();

    /// Adds "result", "errno" and, for a failure, "error" with the errno's name, and writes.
    void finish(std::int64_t result, int error);
    void write();

private:
    void put(const char* text, std::size_t length);
    void putText(const char* text);
    void putNumber(std::int64_t value);
    void putKey(const char* key);

    bool m_active;
    bool m_first = true;
    std::int64_t m_start = 0;
    std::size_t m_length = 0;
    char m_line[3072]; // a line that would be longer ends in a valid, shorter way: see write()
};

} // namespace virtual_device
