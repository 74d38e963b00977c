#include "mapping_table.h"

#include <algorithm>

namespace virtual_device {
namespace {

constexpr unsigned PAGE_BITS = 12; // of the smallest page; a larger one is some of these
constexpr unsigned COUNT_BITS = 24;

std::uint64_t packed(std::uintptr_t start, std::uintptr_t end) {
    return std::uint64_t{start >> PAGE_BITS} << COUNT_BITS | ((end - start) >> PAGE_BITS);
}

std::uintptr_t startOf(std::uint64_t range) {
    return static_cast<std::uintptr_t>(range >> COUNT_BITS << PAGE_BITS);
}

std::uintptr_t endOf(std::uint64_t range) {
    const std::uint64_t pages = range & ((std::uint64_t{1} << COUNT_BITS) - 1);
    return startOf(range) + static_cast<std::uintptr_t>(pages << PAGE_BITS);
}

} // namespace

bool MappingTable::add(std::uintptr_t start, std::uintptr_t end) {
    const auto free = std::find(m_ranges.begin(), m_ranges.end(), 0U);
    if (free == m_ranges.end()) {
        return false;
    }
    *free = packed(start, end);
    return true;
}

void MappingTable::remove(std::uintptr_t start, std::uintptr_t end) {
    const auto found = std::find(m_ranges.begin(), m_ranges.end(), packed(start, end));
    if (found != m_ranges.end()) {
        *found = 0;
    }
}

bool MappingTable::touches(std::uintptr_t start, std::uintptr_t end) const {
    return std::any_of(m_ranges.begin(), m_ranges.end(), [=](std::uint64_t range) {
        return range != 0 && start < endOf(range) && end > startOf(range);
    });
}

} // namespace virtual_device
