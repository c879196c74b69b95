#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "agent/text/Dates.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;

constexpr char const* date = "2026-11-22T21:05:09+01:00";

TEST(Dates, AreIso8601WhereTheDayIsKnown) {
  Dates const dates = Dates::knownAt(1000s);
  std::regex const seconds(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d)");
  std::regex const exact(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}[+-]\d\d:\d\d)");
  EXPECT_TRUE(std::regex_match(dates.text(1000s), seconds)) << dates.text(1000s);
  EXPECT_TRUE(std::regex_match(dates.exactText(1000s), exact)) << dates.exactText(1000s);
}

TEST(Dates, CountFromNow) {
  auto const now = std::chrono::system_clock::now();
  Dates const dates = Dates::knownAt(1000s);
  std::string const longAgo = dates.text(1000s - 400h);
  EXPECT_TRUE(longAgo == dateText(now - 400h) || longAgo == dateText(now - 400h + 1s)) << longAgo;
}

TEST(Dates, InUtcEndInTheZonesLetter) {
  Dates const dates = Dates::inUtc(1795381509s);
  EXPECT_TRUE(dates.known());
  EXPECT_EQ(dates.text(500ms), "2026-11-22T21:05:09Z");
  EXPECT_EQ(dates.exactText(500ms), "2026-11-22T21:05:09.500000Z");
}

TEST(Dates, SinceZeroAreSeconds) {
  EXPECT_TRUE(Dates::sinceZero().known());
  EXPECT_EQ(Dates::sinceZero().text(12400ms), "12 s");
  EXPECT_EQ(Dates::sinceZero().exactText(12400ms), "12.400000");
}

TEST(Dates, OfAClockOfNoDayAreEmpty) {
  EXPECT_FALSE(Dates().known());
  EXPECT_EQ(Dates().text(5s), "");
  EXPECT_EQ(Dates().exactText(5s), "");
}

TEST(Dates, AreShortByWhatTheReaderKnows) {
  EXPECT_EQ(shortDate(date, "2026-11-22T23:00:00+01:00"), "21:05:09");
  EXPECT_EQ(shortDate(date, "2026-11-23T00:00:00+01:00"), "11-22 21:05");
  EXPECT_EQ(shortDate(date, "2027-01-01T00:00:00+01:00"), "2026-11-22");
  EXPECT_EQ(shortDate("-", "2027-01-01T00:00:00+01:00"), "-");
  EXPECT_EQ(shortDate("", ""), "");
}

TEST(Dates, ArePutInSentencesAndLines) {
  EXPECT_EQ(spelledDate(date), "2026-11-22 21:05:09 +01:00");
  EXPECT_EQ(timeOfDay("2026-11-22T21:05:09.500000-05:00"), "21:05:09.500000");
}

}  // namespace
}  // namespace Agent
