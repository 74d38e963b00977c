#pragma once

#include "trace_level.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Trace {

/// The configured mask words. They are published as a whole: a reader never sees a list in the
/// making. Safe from any thread.
class MaskWords {
public:
    using Words = std::vector<std::uint32_t>;

    MaskWords() = default;
    MaskWords(const MaskWords&) = delete;
    MaskWords& operator=(const MaskWords&) = delete;

    /// Never null. The words stay as they are while the caller holds them.
    std::shared_ptr<const Words> get() const { return std::atomic_load(&m_words); }
    void set(Words words) {
        std::atomic_store(&m_words, std::make_shared<const Words>(std::move(words)));
    }

private:
    std::shared_ptr<const Words> m_words = std::make_shared<const Words>();
};

/// An entry of the configuration file. It decides which lines are written, and where to.
///
/// Level, masks and switch may be read on any thread while another replaces them, one by one: a
/// line may see the old level and the new masks. All else belongs to the thread that reads the
/// file.
struct TraceConfig {
    TraceConfig() = default;
    TraceConfig(const TraceConfig& other) { *this = other; }
    TraceConfig& operator=(const TraceConfig& other);

    /// The entry that a line of the file holds; its name is empty if that is none for this
    /// application. Throws std::invalid_argument or std::out_of_range ("stoi", "stoul") for a
    /// number that cannot be converted.
    static TraceConfig parse(const std::string& line, const std::string& appName);

    /// Takes over the first entry for this application that the file has; false, and nothing
    /// changed, if there is none. A line that cannot be converted is told of and passed over.
    bool readFrom(const std::string& path);

    std::string appName;                         ///< lower case; empty: no name yet
    std::atomic<std::int32_t> level{LEVEL_INFO}; ///< lines above it are not written
    MaskWords masks;                             ///< initially none
    std::atomic<bool> toSyslog{false};           ///< false: standard output

private:
    bool apply(const std::string& line, const std::string& path);
};

} // namespace Trace
