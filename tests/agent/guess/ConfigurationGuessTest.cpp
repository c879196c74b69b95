#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/config/ConfigurationReader.h"
#include "agent/guess/ConfigurationGuess.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr IpAddr router{10, 0, 0, 100};

/// As a cooked capture holds a frame that the switch itself has sent.
ByteVector sentCooked(FrameBuilder const& frame) {
  constexpr std::ptrdiff_t ethernetHeader = 14;
  ByteVector cooked{0, 4, 0, 1, 0, 6, 2, 0, 0, 0, 0, 1, 0, 0, 8, 0};
  ByteVector const bytes = frame.bytes();
  cooked.insert(cooked.end(), bytes.begin() + ethernetHeader, bytes.end());
  return cooked;
}

class ConfigurationGuessTest : public testing::Test {
 protected:
  /// Frames that a port hears one second apart.
  void hears(std::string const& port, std::vector<FrameBuilder> const& frames) {
    CaptureBuilder capture;
    Horix::Time time = someTime + std::chrono::milliseconds(100 * captures.size());
    for (FrameBuilder const& frame : frames) capture.at(time += 1s, frame);
    captures.push_back(
        {Wirex::IntfId(Kel::String8(port)), capture.write(directory.file(port + ".pcap"))});
  }

  std::string text() const { return configurationGuessedFrom(captures); }

  Configuration configuration() const {
    auto const result = readConfiguration(text(), "guess");
    if (auto const* const errors = std::get_if<ConfigurationErrors>(&result))
      throw std::runtime_error(errors->front());
    return std::get<Configuration>(result);
  }

  VlanConfig vlan(unsigned number) const {
    auto const all = configuration();
    for (VlanConfig const& each : all.vlans)
      if (each.vlanId.value() == number) return each;
    throw std::runtime_error("no such VLAN");
  }

  static bool isTagged(VlanConfig const& vlan, char const* port) {
    VlanMember const* const member = vlan.member(Wirex::IntfId(Kel::String8(port)));
    if (!member) throw std::runtime_error("no such member");
    return member->tagged;
  }

  TemporaryDirectory directory;
  std::vector<PortCapture> captures;
};

TEST_F(ConfigurationGuessTest, TagsNameVlansAndPorts) {
  hears("swp1", {FrameBuilder::reportV2(group).vlan(10), FrameBuilder::reportV2(group).vlan(20)});
  hears("swp2", {FrameBuilder::reportV2(group).vlan(20)});
  EXPECT_EQ(configuration().vlans.size(), 2u);
  EXPECT_EQ(vlan(10).members.size(), 1u);
  EXPECT_EQ(vlan(20).members.size(), 2u);
  EXPECT_TRUE(isTagged(vlan(20), "swp2"));
  EXPECT_THAT(text(), HasSubstr("\"swp1\",  # frame 2 of " + captures[0].fileName));
}

TEST_F(ConfigurationGuessTest, UntaggedFramesAreOfTheOnlyVlanThatTagsOfOtherPortsName) {
  hears("swp1", {FrameBuilder::reportV2(group)});
  hears("swp2", {FrameBuilder::queryV2({}, 100).from(router).vlan(30)});
  ASSERT_EQ(configuration().vlans.size(), 1u);
  EXPECT_FALSE(isTagged(vlan(30), "swp1"));
  EXPECT_TRUE(isTagged(vlan(30), "swp2"));
  EXPECT_THAT(text(), HasSubstr("is a guess"));
}

TEST_F(ConfigurationGuessTest, UntaggedFramesOfATrunkAreOfAVlanThatNoTagNames) {
  hears("swp1", {FrameBuilder::reportV2(group), FrameBuilder::reportV2(group).vlan(1)});
  EXPECT_TRUE(isTagged(vlan(1), "swp1"));
  EXPECT_FALSE(isTagged(vlan(2), "swp1"));
}

TEST_F(ConfigurationGuessTest, QuerierWithTheLowestAddressGivesVersionAndTimes) {
  hears("swp1", {FrameBuilder::queryV2({}, 100).from({10, 0, 0, 200})});
  hears("swp2", {FrameBuilder::queryV3(
                     {.maxResponseCode = 40, .flagsAndRobustness = 3, .queryIntervalCode = 60})
                     .from(router)});
  auto const vlan1 = vlan(1);
  EXPECT_EQ(vlan1.querierVersion, Igmp::IgmpVersion::v3);
  EXPECT_EQ(vlan1.settings.robustnessVariable, 3u);
  EXPECT_EQ(vlan1.settings.queryInterval, 60s);
  EXPECT_EQ(vlan1.settings.queryMaxResponseTime, 4s);
  EXPECT_FALSE(vlan1.settings.sendQuery);
  EXPECT_THAT(text(), HasSubstr("# 10.0.0.100 asks in IGMPv3: frame 1 of " + captures[1].fileName));
  EXPECT_THAT(text(), HasSubstr("# static-bridge-mrouter-interface = [\"swp1\", \"swp2\"]"));
}

TEST_F(ConfigurationGuessTest, TimesThatCannotBeConfiguredAreLeftOut) {
  hears("swp1",
        {FrameBuilder::queryV3({.maxResponseCode = 100, .queryIntervalCode = 5}).from(router)});
  EXPECT_EQ(vlan(1).settings.queryInterval, 125s);
}

TEST_F(ConfigurationGuessTest, WithoutAQuerierTheNewestReportGivesTheVersion) {
  hears("swp1", {FrameBuilder::reportV1(group), FrameBuilder::reportV2(group)});
  EXPECT_EQ(vlan(1).querierVersion, Igmp::IgmpVersion::v2);
  EXPECT_THAT(text(), HasSubstr("# Nobody asked; listeners report in IGMPv2 at most."));
}

TEST_F(ConfigurationGuessTest, VlanWithoutIgmpIsNotProxied) {
  hears("swp1", {FrameBuilder::reportV2(group).protocol(17)});
  EXPECT_EQ(vlan(1).querierVersion, std::nullopt);
}

TEST_F(ConfigurationGuessTest, QueryWithoutAnAddressIsNoRouters) {
  hears("swp1", {FrameBuilder::queryV2({}, 100).from(IpAddr())});
  EXPECT_THAT(text(), Not(HasSubstr("leads to a router")));
}

TEST_F(ConfigurationGuessTest, QueryThatWasForwardedTellsOfTheRoutersPortAlone) {
  auto const query = FrameBuilder::queryV2({}, 100).from(router);
  hears("swp1", {query});
  captures.push_back(
      {Wirex::IntfId("swp2"),
       CaptureBuilder().at(someTime + 1s + 1ms, query).write(directory.file("swp2.pcap"))});
  EXPECT_THAT(text(), HasSubstr("# swp1 leads to a router"));
  EXPECT_THAT(text(), Not(HasSubstr("# swp2 leads to a router")));
  EXPECT_EQ(vlan(1).members.size(), 2u);
}

TEST_F(ConfigurationGuessTest, SwitchThatAsksIsTheQuerier) {
  captures.push_back({Wirex::IntfId("swp1"),
                      CaptureBuilder()
                          .linkType(DLT_LINUX_SLL)
                          .at(someTime, sentCooked(FrameBuilder::queryV2({}, 100).from(router)))
                          .write(directory.file("swp1.pcap"))});
  EXPECT_TRUE(vlan(1).settings.sendQuery);
  EXPECT_EQ(vlan(1).settings.querierSource, router);
  EXPECT_EQ(vlan(1).querierVersion, Igmp::IgmpVersion::v2);
  EXPECT_THAT(text(), Not(HasSubstr("leads to a router")));
}

TEST_F(ConfigurationGuessTest, QueryThatTheSwitchForwardedIsNotItsOwn) {
  auto const query = FrameBuilder::queryV2({}, 100).from(router);
  hears("swp1", {query});
  captures.push_back({Wirex::IntfId("swp2"), CaptureBuilder()
                                                 .linkType(DLT_LINUX_SLL)
                                                 .at(someTime + 1s, sentCooked(query))
                                                 .write(directory.file("swp2.pcap"))});
  EXPECT_FALSE(vlan(1).settings.sendQuery);
}

TEST_F(ConfigurationGuessTest, PortThatHeardNothingIsThere) {
  hears("swp1", {});
  EXPECT_EQ(configuration().interfaces.size(), 1u);
  EXPECT_THAT(configuration().vlans, IsEmpty());
}

TEST_F(ConfigurationGuessTest, PortThatNoInterfaceCanBeIsRefused) {
  hears("1", {FrameBuilder::reportV2(group)});
  EXPECT_THROW(text(), std::invalid_argument);
}

}  // namespace
}  // namespace Agent
