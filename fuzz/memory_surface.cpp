#include "memory_surface.h"

#include "display/surface.h"

#include <condition_variable>
#include <cstring>
#include <ctime>
#include <mutex>

namespace {

using paint::Surface;
constexpr std::size_t PIXELS = std::size_t{Surface::WIDTH} * Surface::HEIGHT;

/// What the two threads share; never destroyed, since the renderer's thread still waits on it at
/// exit.
struct Shared {
    std::vector<std::uint16_t> memory[2];
    std::vector<std::uint16_t> picture;
    std::mutex mutex;
    std::condition_variable changed;
    std::uint64_t flipped = 0;
    std::uint64_t wanted = 0;
};
Shared& shared = *new Shared;

} // namespace

/// The renderer paces itself with this; a fuzzer does not wait.
extern "C" int nanosleep(const timespec* /*pause*/, timespec* /*rest*/) {
    return 0;
}

namespace memory_surface {

std::vector<std::uint16_t> nextFrame() {
    std::unique_lock<std::mutex> lock(shared.mutex);
    const std::uint64_t frame = ++shared.wanted;
    shared.changed.notify_all();
    shared.changed.wait(lock, [frame] { return shared.flipped >= frame; });
    return shared.picture;
}

} // namespace memory_surface

namespace paint {

Surface::Surface() {
    for (auto& memory : shared.memory) {
        memory.assign(PIXELS, 0xFFFF);
        m_buffers.push_back({memory.data(), static_cast<std::uint32_t>(PIXELS * BYTES_PER_PIXEL)});
    }
}

Surface::~Surface() = default;

int Surface::flip() {
    std::unique_lock<std::mutex> lock(shared.mutex);
    shared.picture = shared.memory[m_freeBuffer.index];
    ++shared.flipped;
    shared.changed.notify_all();
    shared.changed.wait(lock, [] { return shared.wanted > shared.flipped; });
    m_freeBuffer.index = 1 - m_freeBuffer.index;
    return static_cast<int>(m_freeBuffer.index);
}

void Surface::close() {
    m_closed = true;
}

} // namespace paint
