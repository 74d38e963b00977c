/// \file
/// Which memory belongs to the device's mappings, asked at every munmap of the process.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace virtual_device {

/// Ranges of whole pages. Asking is safe from any thread and takes no lock: a sanitizer unmaps its
/// own memory with a lock held that a call on the device may be waiting for. Changes are made by
/// one thread at a time.
class MappingTable {
public:
    static constexpr std::size_t MOST = 512;

    /// False where the table is full.
    bool add(std::uintptr_t start, std::uintptr_t end);
    /// Takes one entry of this range away.
    void remove(std::uintptr_t start, std::uintptr_t end);
    bool touches(std::uintptr_t start, std::uintptr_t end) const;

private:
    /// Number of the first page and how many there are, in one word that is read whole; 0 for none.
    std::array<std::atomic<std::uint64_t>, MOST> m_ranges{};
};

} // namespace virtual_device
