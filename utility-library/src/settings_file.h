#pragma once

#include <cstddef>
#include <cstdint>

namespace brem {

/// A settings file that is open for reading. If it is missing, may not be read or is not a regular
/// file, it counts as empty: a pipe, a device or a terminal is neither waited for nor read.
///
/// Bound to one thread. Allocates nothing.
class SettingsFile {
public:
    explicit SettingsFile(const char* path);
    ~SettingsFile();

    SettingsFile(const SettingsFile&) = delete;
    SettingsFile& operator=(const SettingsFile&) = delete;

    /// Reads so many bytes from that place on; fewer only if the file ends before, or if it cannot
    /// be read further.
    std::size_t read(char* bytes, std::size_t size, std::int64_t place) const;

private:
    int m_descriptor;
    std::int64_t m_size = 0;
};

} // namespace brem
