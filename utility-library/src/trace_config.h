#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Trace {

/// The configured mask words, published as a whole: a reader never sees a list in the making.
///
/// Safe from any thread.
class MaskWords {
public:
    using Words = std::vector<std::uint32_t>;

    MaskWords() = default;
    MaskWords(const MaskWords& other) : m_words(other.words()) {}
    MaskWords& operator=(const MaskWords& other);
    MaskWords& operator=(Words words);

    /// The list in force; null where it is empty. Stays valid while the caller holds it.
    std::shared_ptr<const Words> words() const { return std::atomic_load(&m_words); }

private:
    std::shared_ptr<const Words> m_words;
};

/// What decides which lines are written, and where to.
///
/// Level, masks and switch may be read on any thread while another replaces them, one by one: a
/// line may see the old level and the new masks. The name belongs to the thread that reads the
/// file.
struct TraceConfig {
    /// The level before any configuration: 4, "INFO".
    static constexpr std::int32_t INITIAL_LEVEL = 4;

    TraceConfig() = default;
    TraceConfig(const TraceConfig& other);
    TraceConfig& operator=(const TraceConfig& other);

    std::string appName;                            ///< lower case; empty: no name yet
    std::atomic<std::int32_t> level{INITIAL_LEVEL}; ///< lines above it are not written
    MaskWords masks;                                ///< initially none
    std::atomic<bool> toSyslog{false};              ///< false: standard output
};

} // namespace Trace
