#include "split.h"

#include <gmock/gmock.h>

namespace {

using brem::split;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ASplit, OfAnEmptyTextHasNoPieces) {
    EXPECT_THAT(split("", ";"), IsEmpty());
}

TEST(ASplit, OfATextWithoutDelimiterIsThatText) {
    EXPECT_THAT(split("title", ";"), ElementsAre("title"));
}

TEST(ASplit, KeepsAnEmptyPieceInFrontAndBetween) {
    EXPECT_THAT(split(";a;;b", ";"), ElementsAre("", "a", "", "b"));
}

TEST(ASplit, HasNoEmptyPieceBehindTheLastDelimiter) {
    EXPECT_THAT(split("a;b;", ";"), ElementsAre("a", "b"));
    EXPECT_THAT(split(";", ";"), ElementsAre(""));
    EXPECT_THAT(split("a;;", ";"), ElementsAre("a", ""));
}

TEST(ASplit, TakesADelimiterOfSeveralCharactersAsAWhole) {
    EXPECT_THAT(split("a\\nb\\\\nc\\n", "\\n"), ElementsAre("a", "b\\", "c"));
    EXPECT_THAT(split("one\\two", "\\n"), ElementsAre("one\\two"));
}

TEST(ASplit, TakesOverlappingDelimitersFromTheFront) {
    EXPECT_THAT(split("aaab", "aa"), ElementsAre("", "ab"));
}

TEST(ASplit, KeepsZeroBytes) {
    EXPECT_THAT(split(std::string("a\0;b", 4), ";"), ElementsAre(std::string("a\0", 2), "b"));
}

} // namespace
