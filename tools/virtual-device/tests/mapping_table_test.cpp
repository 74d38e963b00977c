// Which memory counts as the device's.
#include "mapping_table.h"

#include <gtest/gtest.h>

using virtual_device::MappingTable;

namespace {

constexpr std::uintptr_t PAGE = 4096;

/// Two mappings with other memory between them.
MappingTable& twoApart() {
    static MappingTable table;
    static const bool filled = table.add(10 * PAGE, 20 * PAGE) && table.add(50 * PAGE, 60 * PAGE);
    EXPECT_TRUE(filled);
    return table;
}

} // namespace

TEST(AMappingTable, SaysNothingOfTheMemoryBetweenTwoMappings) {
    EXPECT_FALSE(twoApart().touches(20 * PAGE, 50 * PAGE));
    EXPECT_FALSE(twoApart().touches(30 * PAGE, 31 * PAGE));
}

TEST(AMappingTable, KnowsARangeThatTouchesAMapping) {
    EXPECT_TRUE(twoApart().touches(19 * PAGE, 30 * PAGE));
    EXPECT_TRUE(twoApart().touches(30 * PAGE, 51 * PAGE));
    EXPECT_TRUE(twoApart().touches(0, 100 * PAGE));
    EXPECT_FALSE(twoApart().touches(0, 10 * PAGE));
    EXPECT_FALSE(twoApart().touches(60 * PAGE, 70 * PAGE));
}

TEST(AMappingTable, ForgetsOneOfTwoMappingsOfTheSamePlace) {
    MappingTable table;
    ASSERT_TRUE(table.add(PAGE, 2 * PAGE) && table.add(PAGE, 2 * PAGE));
    table.remove(PAGE, 2 * PAGE);
    EXPECT_TRUE(table.touches(PAGE, 2 * PAGE));
    table.remove(PAGE, 2 * PAGE);
    EXPECT_FALSE(table.touches(PAGE, 2 * PAGE));
}

TEST(AMappingTable, HoldsAnAddressThatNeedsAllItsBits) {
    MappingTable table;
    constexpr std::uintptr_t top =
        UINTPTR_MAX >> 16U & ~(PAGE - 1); // where a program's memory ends
    ASSERT_TRUE(table.add(top - PAGE, top));
    EXPECT_TRUE(table.touches(top - 1, top));
    EXPECT_FALSE(table.touches(0, top - PAGE));
}

TEST(AMappingTable, RefusesWhatItHasNoRoomFor) {
    MappingTable table;
    for (std::size_t i = 0; i < MappingTable::MOST; ++i) {
        ASSERT_TRUE(table.add(PAGE, 2 * PAGE));
    }
    EXPECT_FALSE(table.add(PAGE, 2 * PAGE));
}
