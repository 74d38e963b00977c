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
        !m_queue.findOffset(offset, buffer) || roundUp(bytes) > m_queue.mappingBytes()) {
        return EINVAL;
    }
    start = real().mmap64(hint, bytes, protection, flags, m_queue.memory()->fd(),
                          static_cast<off64_t>(offset));
    if (start == MAP_FAILED) {
        return errno;
    }
    const Mapping mapping{address(start), address(start) + roundUp(bytes), handle, buffer,
                          m_queue.memory()};
    std::vector<Mapping> mappings = m_mappings;
    mappings.push_back(mapping);
    if (!setMappings(mappings)) {
        real().munmap(start, bytes);
        start = MAP_FAILED;
        return ENOMEM;
    }
    return 0;
}

/// False, and nothing changed, where there are too many.
bool Device::setMappings(const std::vector<Mapping>& mappings) {
    if (m_mappings.size() + mappings.size() > MappingTable::MOST) {
        return false;
    }
    // What stays is there twice for a moment, and never not at all.
    for (const Mapping& mapping : mappings) {
        m_table.add(mapping.start, mapping.end);
        count(mapping, true);
    }
    for (const Mapping& mapping : m_mappings) {
        m_table.remove(mapping.start, mapping.end);
        count(mapping, false);
    }
    m_mappings = mappings;
    return true;
}

void Device::count(const Mapping& mapping, bool added) {
    m_handles[mapping.handle].mappings += added ? 1U : -1U;
    if (mapping.memory == m_queue.memory()) {
        m_queue.countMapping(mapping.buffer, added);
    }
}

bool Device::isMapped(const void* start, std::size_t bytes) const {
    return m_table.touches(address(start), address(start) + bytes);
}

int Device::unmap(void* start, std::size_t bytes) {
    const std::lock_guard<std::mutex> control(m_control);
    std::unique_lock<std::mutex> lock(m_mutex);
    const std::uintptr_t from = address(start);
    const std::uintptr_t to = from + roundUp(bytes);
    const std::vector<Mapping> before = m_mappings;
    std::vector<Mapping> after;
    for (const Mapping& mapping : before) {
        // What the range leaves of a mapping, on either side, goes on as a mapping.
        Mapping left = mapping;
        Mapping right = mapping;
        left.end = std::min(left.end, from);
        right.start = std::max(right.start, to);
        for (const Mapping& rest : {left, right}) {
            if (rest.start < rest.end) {
                after.push_back(rest);
            }
        }
    }
    // Before the memory is free: another thread may be given the same addresses at once.
    if (!setMappings(after)) {
        return ENOMEM;
    }
    if (real().munmap(start, bytes) != 0) {
        const int error = errno;
        setMappings(before);
        return error;
    }
    for (const Mapping& mapping : before) {
        endIfUnused(mapping.handle, lock);
    }
    return 0;
}

} // namespace virtual_device
