#include "device.h"

#include "real.h"

#include <algorithm>
#include <cerrno>

namespace virtual_device {

int Device::map(void* hint, std::size_t bytes, int protection, int flags, std::uint64_t offset,
                void*& start) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (bytes == 0 || (flags & MAP_TYPE) != MAP_SHARED || (protection & PROT_WRITE) == 0 ||
        !m_queue.isBuffer(offset, bytes)) {
        return EINVAL;
    }
    const auto place = std::find(m_mappings.begin(), m_mappings.end(), nullptr);
    if (place == m_mappings.end()) {
        return ENOMEM;
    }
    start = real().mmap64(hint, bytes, protection, flags, m_queue.memory(),
                          static_cast<off64_t>(offset));
    if (start == MAP_FAILED) {
        return errno;
    }
    *place = start;
    return 0;
}

bool Device::isMapped(const void* start) const {
    return start != nullptr &&
           std::find(m_mappings.begin(), m_mappings.end(), start) != m_mappings.end();
}

int Device::unmap(void* start, std::size_t bytes) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto place = std::find(m_mappings.begin(), m_mappings.end(), start);
    // Before the memory is free: another thread may be given the same address at once.
    *place = nullptr;
    if (real().munmap(start, bytes) != 0) {
        *place = start;
        return errno;
    }
    return 0;
}

} // namespace virtual_device
