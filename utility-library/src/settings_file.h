#pragma once

#include <cstddef>
#include <cstdint>

namespace brem {

/// A settings file that is open for reading. What is no regular file counts as an empty one: a
/// pipe, a device or a terminal in its place is neither waited for nor read. So does a file that is
/// missing or may not be read.
///
/// Bound to one thread. Allocates nothing.
class SettingsFile {
public:
    explicit SettingsFile(const char* path);
    ~SettingsFile();

    SettingsFile(const SettingsFile&) = delete;
    SettingsFile& operator=(const SettingsFile&) = delete;

    /// Reads so many bytes from that place on; fewer only if the file ends before.
    std::size_t read(char* bytes, std::size_t size, std::int64_t place) const;

private:
    int m_descriptor;
    std::int64_t m_size = 0;
};

} // namespace brem
