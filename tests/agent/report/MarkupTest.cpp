#include <gtest/gtest.h>

#include "agent/report/Markup.h"

namespace Agent {
namespace {

TEST(MarkupTest, WhatMarkupIsMadeOfIsEscaped) {
  EXPECT_EQ(escaped("<script>alert(\"1\" & '2')</script>"),
            "&lt;script&gt;alert(&quot;1&quot; &amp; &#39;2&#39;)&lt;/script&gt;");
}

TEST(MarkupTest, OtherCharactersStay) {
  EXPECT_EQ(escaped("swp1 \u00e4\u4e2d\U0001f600"), "swp1 \u00e4\u4e2d\U0001f600");
}

TEST(MarkupTest, WhatIsNoUtf8IsReplaced) {
  EXPECT_EQ(escaped("a\xff"
                    "b"),
            "a\ufffdb");
  EXPECT_EQ(escaped("cut off \xe4\xb8"), "cut off \ufffd\ufffd");
  EXPECT_EQ(escaped("overlong \xc0\xbc"), "overlong \ufffd\ufffd");
  EXPECT_EQ(escaped("surrogate \xed\xa0\x80"), "surrogate \ufffd\ufffd\ufffd");
}

TEST(MarkupTest, WhatCannotBeSeenIsShown) {
  EXPECT_EQ(escaped("a\x01\x1b\nb"), "a\\u{1}\\u{1b}\\u{a}b");
  EXPECT_EQ(escaped("swp\u202e1pws"), "swp\\u{202e}1pws");
}

TEST(MarkupTest, LongTextsAreShortenedBetweenCharacters) {
  EXPECT_EQ(shortened("swp1", 4), "swp1");
  EXPECT_EQ(shortened("swp10", 4), "swp\u2026");
  EXPECT_EQ(shortened("\u00e4\u00e4\u00e4\u00e4\u00e4", 3), "\u00e4\u00e4\u2026");
}

TEST(MarkupTest, NumbersAreGroupedByThousands) {
  EXPECT_EQ(grouped(0), "0");
  EXPECT_EQ(grouped(999), "999");
  EXPECT_EQ(grouped(48000), "48,000");
  EXPECT_EQ(grouped(1234567), "1,234,567");
}

}  // namespace
}  // namespace Agent
