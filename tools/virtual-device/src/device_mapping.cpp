#include "device.h"

#include "real.h"

#include <algorithm>
#include <cerrno>

namespace virtual_device {
namespace {

std::uintptr_t address(const void* pointer) {
    return reinterpret_cast<std::uintptr_t>(pointer);
}

std::uintptr_t roundUp(std::size_t bytes) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

} // namespace

int Device::map(unsigned handle, void* hint, std::size_t bytes, int protection, int flags,
                std::uint64_t offset, void*& start) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::uint32_t buffer = 0;
    const bool shared =
        (flags & MAP_TYPE) == MAP_SHARED || (flags & MAP_TYPE) == MAP_SHARED_VALIDATE;
    if (bytes == 0 || !shared || (protection & PROT_WRITE) == 0 ||
        !m_queue.findOffset(offset, buffer) || roundUp(bytes) > m_queue.mappingBytes())
        return EINVAL;
    start = real().mmap64(hint, bytes, protection, flags, m_queue.memory()->fd(),
                          static_cast<off64_t>(offset));
    if (start == MAP_FAILED)
        return errno;
    const Mapping mapping{address(start), address(start) + roundUp(bytes), handle, buffer,
                          m_queue.memory()};
    m_mappings.push_back(mapping);
    m_lowestMapping = std::min(m_lowestMapping.load(), mapping.start);
    m_highestMapping = std::max(m_highestMapping.load(), mapping.end);
    m_mappingCount = static_cast<unsigned>(m_mappings.size());
    m_queue.countMapping(buffer, true);
    ++m_handles[handle].mappings;
    return 0;
}

bool Device::isMapped(const void* start, std::size_t bytes) {
    const std::uintptr_t from = address(start);
    // Elsewhere there is nothing to look for, and no lock to take: a sanitizer unmaps its own
    // memory with a lock held that a call on the device may be waiting for.
    if (m_mappingCount == 0 || from >= m_highestMapping || from + bytes <= m_lowestMapping)
        return false;
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::any_of(m_mappings.begin(), m_mappings.end(), [&](const Mapping& mapping) {
        return from < mapping.end && from + bytes > mapping.start;
    });
}

int Device::unmap(void* start, std::size_t bytes) {
    const std::lock_guard<std::mutex> control(m_control);
    std::unique_lock<std::mutex> lock(m_mutex);
    if (real().munmap(start, bytes) != 0)
        return errno;
    const std::uintptr_t from = address(start);
    const std::uintptr_t to = from + roundUp(bytes);
    std::vector<Mapping> before;
    before.swap(m_mappings);
    for (const Mapping& mapping : before) {
        // What the range leaves of a mapping, on either side, goes on as a mapping.
        Mapping left = mapping;
        Mapping right = mapping;
        left.end = std::min(left.end, from);
        right.start = std::max(right.start, to);
        for (const Mapping& rest : {left, right}) {
            if (rest.start >= rest.end)
                continue;
            m_mappings.push_back(rest);
            ++m_handles[mapping.handle].mappings;
            if (rest.memory == m_queue.memory())
                m_queue.countMapping(rest.buffer, true);
        }
        --m_handles[mapping.handle].mappings;
        if (mapping.memory == m_queue.memory())
            m_queue.countMapping(mapping.buffer, false);
    }
    m_mappingCount = static_cast<unsigned>(m_mappings.size());
    for (const Mapping& mapping : before)
        endIfUnused(mapping.handle, lock);
    return 0;
}

} // namespace virtual_device
