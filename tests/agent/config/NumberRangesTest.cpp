#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/config/NumberRanges.h"

namespace Agent {
namespace {

using testing::ElementsAre;

std::string refusalOf(std::string_view ranges) {
  try {
    expandNumberRanges(ranges);
  } catch (std::invalid_argument const& refusal) {
    return refusal.what();
  }
  return "accepted";
}

TEST(NumberRanges, NumberStandsForItself) {
  EXPECT_THAT(expandNumberRanges("7"), ElementsAre(7));
  EXPECT_THAT(expandNumberRanges("0"), ElementsAre(0));
}

TEST(NumberRanges, RangeIncludesBothEnds) {
  EXPECT_THAT(expandNumberRanges("8-11"), ElementsAre(8, 9, 10, 11));
  EXPECT_THAT(expandNumberRanges("3-3"), ElementsAre(3));
}

TEST(NumberRanges, ListKeepsItsOrder) {
  EXPECT_THAT(expandNumberRanges("5,1-3,2"), ElementsAre(5, 1, 2, 3, 2));
}

TEST(NumberRanges, RangeMayEndAtTheLargestNumber) {
  EXPECT_THAT(expandNumberRanges("4294967294-4294967295"), ElementsAre(4294967294, 4294967295));
}

TEST(NumberRanges, AsManyNumbersAsThereAreVlans) {
  EXPECT_EQ(expandNumberRanges("1-4094").size(), 4094u);
  EXPECT_EQ(refusalOf("0-4094"),
            "range \"0-4094\" exceeds 4094 numbers in all; give a smaller range");
  EXPECT_EQ(refusalOf("1-4094,1"), "range \"1\" exceeds 4094 numbers in all; give a smaller range");
  EXPECT_EQ(refusalOf("0-4294967295"),
            "range \"0-4294967295\" exceeds 4094 numbers in all; give a smaller range");
}

TEST(NumberRanges, DownwardRangeIsRefused) {
  EXPECT_EQ(refusalOf("5-1"), "range \"5-1\" runs downwards; write 1-5");
}

TEST(NumberRanges, LeadingZeroIsRefused) {
  EXPECT_EQ(refusalOf("01-10"), "number \"01\" has a leading zero; write 1");
}

TEST(NumberRanges, TooLargeNumberIsRefused) {
  EXPECT_EQ(refusalOf("4294967296"), "\"4294967296\" is too large; give a smaller number");
}

TEST(NumberRanges, EverythingElseIsNoNumber) {
  for (std::string const text : {"", " ", "x", "1x", "+1", "1 ", " 1", "0x1", "1.5"}) {
    EXPECT_EQ(refusalOf(text),
              "\"" + text + "\" is no number; write ranges as in 1-5 or 1,3-5, without blanks");
  }
  for (std::string_view const text : {",", "1,", ",1", "1,,2", "-", "1-", "-1", "--1"}) {
    EXPECT_THAT(refusalOf(text), testing::StartsWith("\"\" is no number;")) << text;
  }
  EXPECT_THAT(refusalOf("1-2-3"), testing::StartsWith("\"2-3\" is no number;"));
}

}  // namespace
}  // namespace Agent
