#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/live/AddressLog.h"
#include "agent/live/QuerierLog.h"
#include "tests/agent/SwitchTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

class AddressLogTest : public testing::Test {
 protected:
  explicit AddressLogTest(std::string const& more = "") : test(vlan10("swp[1-2]", more)) {}

  void addressIs(Wirex::IpAddr address) {
    test.snooping.ownAddressesAre([=](auto const&, auto const&) { return address; });
    addressLog.changed();
  }
  template <class Action>
  std::string logged(Action action) {
    testing::internal::CaptureStderr();
    action();
    test.advance(1s);
    return testing::internal::GetCapturedStderr();
  }

  TestSwitch test;
  AddressLog addressLog{test.snooping, test.loop.timerWheel()};
};

TEST_F(AddressLogTest, VlanWithoutAnAddressIsWarnedOfOnceAndAgainWhenItLosesOne) {
  auto const changes = [&] { addressLog.changed(); };
  EXPECT_THAT(logged(changes),
              AllOf(HasSubstr("VLAN 10: no IPv4 address is found for interfaces swp1 and swp2, so "
                              "reports are sent from 0.0.0.0"),
                    testing::Not(HasSubstr("queries"))));
  EXPECT_THAT(logged(changes), IsEmpty());
  EXPECT_THAT(logged([&] { addressIs({192, 0, 2, 1}); }), IsEmpty());
  EXPECT_THAT(logged([&] { addressIs({}); }), HasSubstr("reports are sent from 0.0.0.0"));
}

TEST_F(AddressLogTest, InterfacesThatAreNotThereAreNotWarnedOf) {
  for (char const* const intf : {"swp1", "swp2"})
    test.snooping.interfaceStateIs(Wirex::IntfId(intf), {});
  EXPECT_THAT(logged([&] { addressLog.changed(); }), IsEmpty());
}

struct ConfiguredAddressLogTest : AddressLogTest {
  ConfiguredAddressLogTest()
      : AddressLogTest("send-query = true\nsender-source-address = \"0.0.0.0\"") {}
};

TEST_F(ConfiguredAddressLogTest, OnlyAddressesToBeFoundAreWarnedOf) {
  EXPECT_THAT(logged([&] { addressLog.changed(); }),
              AllOf(HasSubstr("VLAN 10: no IPv4 address is found for queries"),
                    testing::Not(HasSubstr("reports"))));
  EXPECT_THAT(logged([&] { addressIs({192, 0, 2, 1}); }), IsEmpty());
}

TEST_F(ConfiguredAddressLogTest, EveryChangeOfTheElectedQuerierIsLogged) {
  QuerierLog querierLog(test.loop.timerWheel());
  test.snooping.onElectionIs([&](auto const& querier) { querierLog.elected(querier); });
  auto const asks = [&](Wirex::IpAddr from) {
    return [=, this] { test.hear("swp1", IgmpTest::FrameBuilder::queryV3({}).from(from)); };
  };
  EXPECT_EQ(logged(asks({192, 0, 2, 9})),
            "igmpsnoopd: VLAN 10: querier 192.0.2.9 (02:00:c0:00:02:09) on interface swp1 is "
            "elected\n");
  EXPECT_THAT(logged(asks({192, 0, 2, 9})), IsEmpty());
  EXPECT_THAT(logged(asks({192, 0, 2, 8})), HasSubstr("querier 192.0.2.8"));
  EXPECT_EQ(logged([&] { test.advance(260s); }),
            "igmpsnoopd: VLAN 10: this switch is the querier\n");
  EXPECT_THAT(logged(asks({})), HasSubstr("querier without an address (02:00:00:00:00:00)"));
}

}  // namespace
}  // namespace Agent
