#include <chrono>

#include <gtest/gtest.h>

#include "platform/snooping/HeardRouters.h"

namespace {

using namespace std::chrono_literals;
using Bridging::IgmpSnooping::HeardRouters;
using Wirex::IpAddr;

constexpr IpAddr a{192, 0, 2, 1};
constexpr IpAddr b{192, 0, 2, 2};

class HeardRoutersTest : public testing::Test {
 protected:
  HeardRouters routers;
};

TEST_F(HeardRoutersTest, NoneIsHeardAtFirst) {
  EXPECT_EQ(routers.latest().address, IpAddr());
  EXPECT_EQ(routers.latest().until, 0s);
  EXPECT_EQ(routers.nextEnd(), Horix::Time::max());
}

TEST_F(HeardRoutersTest, TellsTheOneThatStaysLongestAndTheFirstEnd) {
  routers.heard({a, 20s});
  routers.heard({b, 10s});
  EXPECT_EQ(routers.latest().address, a);
  EXPECT_EQ(routers.latest().until, 20s);
  EXPECT_EQ(routers.nextEnd(), 10s);
}

TEST_F(HeardRoutersTest, OneThatIsHeardAgainHasItsNewTimeOnly) {
  routers.heard({a, 20s});
  routers.heard({a, 10s});
  EXPECT_EQ(routers.latest().until, 10s);
  routers.nowIs(10s);
  EXPECT_EQ(routers.latest().address, IpAddr());
}

TEST_F(HeardRoutersTest, EachEndsAtItsOwnTime) {
  routers.heard({a, 20s});
  routers.heard({b, 10s});
  routers.nowIs(10s - 1ns);
  EXPECT_EQ(routers.nextEnd(), 10s);
  routers.nowIs(10s);
  EXPECT_EQ(routers.nextEnd(), 20s);
}

TEST_F(HeardRoutersTest, OneThatSaysGoodbyeLeavesTheOthers) {
  routers.heard({a, 20s});
  routers.heard({b, 10s});
  routers.gone(a);
  EXPECT_EQ(routers.latest().address, b);
  routers.gone(IpAddr(192, 0, 2, 99));
  EXPECT_EQ(routers.latest().address, b);
}

TEST_F(HeardRoutersTest, NoNumberOfRoutersTakesMoreThanItsRoom) {
  routers.heard({a, 1000s});
  for (std::uint8_t i = 0; i < 250; ++i) routers.heard({IpAddr(10, 0, 0, i), 10s + i * 1s});
  EXPECT_EQ(routers.latest().address, a) << "the ones that end first made room";
  EXPECT_EQ(routers.nextEnd(), 10s + (250 - 15) * 1s);
}

}  // namespace
