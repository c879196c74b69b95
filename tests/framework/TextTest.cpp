#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "framework/kel/Text.h"

namespace {

using Kel::Name;
using Kel::String8;

TEST(String8Test, DefaultIsTheEmptyText) {
  String8 const text;
  EXPECT_TRUE(text.empty());
  EXPECT_EQ(text.size(), 0u);
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_EQ(text, "");
  EXPECT_EQ(text, String8(std::string_view()));
}

TEST(String8Test, TakesLiteralsAndViews) {
  EXPECT_EQ(String8("eth0"), String8(std::string_view("eth0 and more", 4)));
  EXPECT_EQ(String8("eth0").view(), "eth0");
  EXPECT_EQ(String8("eth0").size(), 4u);
}

TEST(String8Test, StringIsAnotherNameForIt) {
  EXPECT_TRUE((std::is_same_v<Kel::String, String8>));
}

TEST(String8Test, EqualityComparesTheBytes) {
  EXPECT_EQ(String8("eth0"), String8("eth0"));
  EXPECT_NE(String8("eth0"), String8("eth1"));
  EXPECT_NE(String8("eth0"), String8("eth"));
  EXPECT_NE(String8("eth0"), String8());
}

TEST(String8Test, HoldsAnyByte) {
  std::string_view const bytes("a\0b\xff", 4);
  String8 const text(bytes);
  EXPECT_EQ(text.size(), 4u);
  EXPECT_EQ(text.view(), bytes);
  EXPECT_NE(text, String8("a"));
}

TEST(String8Test, EndsInAZeroByte) {
  EXPECT_EQ(String8(std::string_view("eth0 and more", 4)).c_str()[4], '\0');
}

TEST(String8Test, CopiesShareTheirBytes) {
  String8 const text("eth0");
  std::vector<String8> const copies(2, text);
  String8 assigned("something else");
  assigned = text;
  EXPECT_EQ(copies[0].c_str(), text.c_str());
  EXPECT_EQ(copies[1].c_str(), text.c_str());
  EXPECT_EQ(assigned.c_str(), text.c_str());
}

TEST(String8Test, CopyOutlivesTheOriginal) {
  String8 copy;
  {
    String8 const text("eth0");
    copy = text;
  }
  EXPECT_EQ(copy, "eth0");
}

TEST(String8Test, MoveTakesTheBytes) {
  String8 text("eth0");
  char const* const bytes = text.c_str();
  String8 const moved = std::move(text);
  EXPECT_EQ(moved.c_str(), bytes);
  String8 assigned;
  assigned = String8(moved);
  EXPECT_EQ(assigned.c_str(), bytes);
}

TEST(String8Test, SelfAssignmentKeepsTheText) {
  String8 text("eth0");
  String8& alias = text;
  text = alias;
  EXPECT_EQ(text, "eth0");
  text = std::move(alias);
  EXPECT_EQ(text, "eth0");
}

TEST(String8Test, OrderIsThatOfTheBytes) {
  EXPECT_LT(String8("eth0"), String8("eth1"));
  EXPECT_LT(String8(), String8("eth0"));
  EXPECT_LT(String8("eth1"), String8("eth10"));
  EXPECT_GT(String8("\xff"), String8("a"));
}

TEST(String8Test, HashIsFnv1aOfTheBytes) {
  EXPECT_EQ(String8().hash(), 0x811c9dc5u);
  EXPECT_EQ(String8("a").hash(), 0xe40c292cu);
  EXPECT_EQ(String8("foobar").hash(), 0xbf9cf968u);
}

TEST(String8Test, JoinsTexts) {
  EXPECT_EQ(String8("Vlan10") + "eth0", "Vlan10eth0");
  EXPECT_EQ(String8() + String8(), String8());
}

TEST(String8Test, PrintsItsBytes) {
  std::ostringstream out;
  out << String8("eth0") << '/' << String8();
  EXPECT_EQ(out.str(), "eth0/");
}

TEST(NameTest, IsMadeOfLiteralsAndTexts) {
  EXPECT_EQ(Name("10"), Name(Kel::format("%d", 10)));
  EXPECT_EQ(Name("10").stringValue(), "10");
  EXPECT_EQ(Name(), Name(""));
}

TEST(NameTest, ComparesHashesAndPrintsAsItsText) {
  EXPECT_NE(Name("10"), Name("11"));
  EXPECT_LT(Name("10"), Name("11"));
  EXPECT_EQ(Name("10").hash(), String8("10").hash());
  std::ostringstream out;
  out << Name("10");
  EXPECT_EQ(out.str(), "10");
}

TEST(NameTest, SharesTheTextItIsMadeOf) {
  String8 const text("Vlan10eth0");
  EXPECT_EQ(Name(text).stringValue().c_str(), text.c_str());
}

TEST(FormatTest, TurnsAVlanNumberIntoAName) {
  EXPECT_EQ(Kel::format("%d", 4094), "4094");
}

TEST(FormatTest, FollowsPrintfConventions) {
  EXPECT_EQ(Kel::format("%s has %u%% of 0x%04x", "eth0", 50u, 255u), "eth0 has 50% of 0x00ff");
  EXPECT_EQ(Kel::format("%s", ""), String8());
}

TEST(FormatTest, TextMayBeOfAnyLength) {
  std::string const text(100000, 'x');
  EXPECT_EQ(Kel::format("<%s>", text.c_str()), String8("<" + text + ">"));
}

}  // namespace
