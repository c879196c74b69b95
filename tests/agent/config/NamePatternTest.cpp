#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/config/NamePattern.h"

namespace Agent {
namespace {

using testing::ElementsAre;
using Wirex::IntfId;

std::string refusalOf(std::string_view pattern) {
  try {
    expandNamePattern(pattern);
  } catch (std::invalid_argument const& refusal) {
    return refusal.what();
  }
  return "accepted";
}

TEST(NamePattern, PlainNameStandsForItself) {
  EXPECT_THAT(expandNamePattern("swp1"), ElementsAre(IntfId("swp1")));
  EXPECT_THAT(expandNamePattern("br-lan.10@x_Y"), ElementsAre(IntfId("br-lan.10@x_Y")));
}

TEST(NamePattern, RangeExpandsInItsOrder) {
  EXPECT_THAT(expandNamePattern("swp[9-11]"),
              ElementsAre(IntfId("swp9"), IntfId("swp10"), IntfId("swp11")));
}

TEST(NamePattern, TextMayFollowTheRange) {
  EXPECT_THAT(expandNamePattern("eth[1,3-4].10"),
              ElementsAre(IntfId("eth1.10"), IntfId("eth3.10"), IntfId("eth4.10")));
}

TEST(NamePattern, RightmostRangeCountsFastest) {
  EXPECT_THAT(expandNamePattern("e[1-2]p[3-4]"),
              ElementsAre(IntfId("e1p3"), IntfId("e1p4"), IntfId("e2p3"), IntfId("e2p4")));
}

TEST(NamePattern, AsManyNamesAsThereAreVlans) {
  EXPECT_EQ(expandNamePattern("p[1-2]x[1-2047]").size(), 4094u);
  EXPECT_EQ(refusalOf("p[1-3]x[1-2047]"),
            "interface name \"p[1-3]x[1-2047]\" stands for more than 4094 names; "
            "give smaller ranges");
}

TEST(NamePattern, BracketsComeInPairs) {
  for (std::string const pattern : {"swp[1-5", "swp1-5]", "swp]1-5[", "swp[1]]", "swp[1][", "["}) {
    EXPECT_EQ(refusalOf(pattern), "interface name \"" + pattern +
                                      "\" has a bracket without its partner; "
                                      "write ranges as in \"swp[1-5]\"");
  }
}

TEST(NamePattern, BadRangeIsRefused) {
  EXPECT_EQ(refusalOf("swp[5-1]"), "range \"5-1\" runs downwards; write 1-5");
  EXPECT_EQ(refusalOf("swp[]"),
            "\"\" is no number; write ranges as in 1-5 or 1,3-5, without blanks");
  EXPECT_EQ(refusalOf("swp[[1]"),
            "\"[1\" is no number; write ranges as in 1-5 or 1,3-5, without blanks");
}

TEST(NamePattern, EmptyNameIsRefused) {
  EXPECT_EQ(refusalOf(""), "interface name \"\" is empty; give the name of an interface");
}

TEST(NamePattern, NameHasAtMostFifteenBytes) {
  EXPECT_THAT(expandNamePattern("abcdefghijklmno"), ElementsAre(IntfId("abcdefghijklmno")));
  EXPECT_EQ(refusalOf("abcdefghijklmnop"),
            "interface name \"abcdefghijklmnop\" is longer than the 15 bytes that Linux allows; "
            "give a shorter name");
  EXPECT_EQ(refusalOf("abcdefghijklmn[9-10]"),
            "interface name \"abcdefghijklmn10\" is longer than the 15 bytes that Linux allows; "
            "give a shorter name");
}

TEST(NamePattern, CharactersThatLinuxForbidsAreRefused) {
  std::string const why =
      " holds a blank, '/', ':' or a control character, which Linux forbids; "
      "give a name without it";
  EXPECT_EQ(refusalOf("a b"), "interface name \"a b\"" + why);
  EXPECT_EQ(refusalOf(" a"), "interface name \" a\"" + why);
  EXPECT_EQ(refusalOf("a/b"), "interface name \"a/b\"" + why);
  EXPECT_EQ(refusalOf("a:1"), "interface name \"a:1\"" + why);
  EXPECT_EQ(refusalOf("a\tb\n"), "interface name \"a\\x09b\\x0a\"" + why);
  EXPECT_EQ(refusalOf("a\x7f"), "interface name \"a\\x7f\"" + why);
}

TEST(NamePattern, DirectoryNamesAreRefused) {
  EXPECT_EQ(refusalOf("."), "interface name \".\" is reserved by Linux; give another name");
  EXPECT_EQ(refusalOf(".."), "interface name \"..\" is reserved by Linux; give another name");
}

TEST(NamePattern, NameBeginningWithADigitIsRefused) {
  std::string const why =
      " begins with a digit, which makes host names ambiguous; "
      "rename the interface to begin with a letter";
  EXPECT_EQ(refusalOf("0eth"), "interface name \"0eth\"" + why);
  EXPECT_EQ(refusalOf("[1-5]"), "interface name \"1\"" + why);
}

}  // namespace
}  // namespace Agent
