#include <map>
#include <optional>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/output/Snapshot.h"
#include "agent/replay/Replay.h"
#include "agent/text/Wording.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/FilterText.h"
#include "tests/agent/config/ConfigurationTesting.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::ElementsAre;
using testing::IsEmpty;

class ReplayTest : public testing::Test {
 protected:
  /// Adds a frame to the capture of a port, at a time after some time.
  void hear(std::string const& port, Horix::Time time, FrameBuilder const& frame) {
    captures[port].at(someTime + time, frame);
  }

  void replay(std::optional<Horix::Time> until = std::nullopt) {
    std::vector<PortCapture> files;
    for (auto const& [port, capture] : captures)
      files.push_back({Wirex::IntfId(port.c_str()), capture.write(directory.file(port))});
    replay(files, until);
  }

  void replay(std::vector<PortCapture> const& files, std::optional<Horix::Time> until) {
    Replay run(configurationIn(configuration), files);
    events.clear();
    causes.clear();
    run.onEventsAre([this](std::vector<ReplayEvent> some) {
      for (ReplayEvent& event : some) {
        events.push_back(event.record);
        causes.push_back(std::move(event.causes));
      }
    });
    run.run(until);
    snapshot = snapshotOf(run.result());
  }

  HostRecords const* host(std::string const& name) const {
    for (HostRecords const& each : snapshot.hosts)
      if (each.name == name) return &each;
    return nullptr;
  }

  /// A host's record of a group: "include 192.0.2.1 192.0.2.2", "exclude", or "none".
  std::string record(std::string const& name, IpAddr address = group) const {
    HostRecords const* const records = host(name);
    if (!records) return "no host";
    for (GroupRecord const& each : records->groups)
      if (each.address == address) return filterText(each.filter);
    return filterText(std::nullopt);
  }

  /// The changes of a host's record of `group`: "time: before -> after", in milliseconds.
  std::vector<std::string> changes(std::string const& name) const {
    std::vector<std::string> texts;
    for (auto const& [time, change] : events) {
      if (message(change.host) != name || change.group != group) continue;
      auto const milliseconds = std::chrono::floor<std::chrono::milliseconds>(time);
      texts.push_back(message(milliseconds.count(), ": ", filterText(change.before), " -> ",
                              filterText(change.after)));
    }
    return texts;
  }

  std::string configuration = threePorts;
  std::map<std::string, CaptureBuilder> captures;
  TemporaryDirectory directory;
  Snapshot snapshot;
  std::vector<RecordEvent> events;
  std::vector<std::vector<EventCause>> causes;  // of the events
};

// ---- Records

TEST_F(ReplayTest, HostReportsWhatOtherPortsWantAndNotWhatItsOwnDoes) {
  hear("swp1", 0s, FrameBuilder::reportV3({toEx(group)}).from(tv));
  hear("swp2", 1s, FrameBuilder::reportV3({isIn(otherGroup, {a})}).from(desk));
  replay();
  EXPECT_EQ(record("Vlan10swp1", group), "none");
  EXPECT_EQ(record("Vlan10swp2", group), "exclude");
  EXPECT_EQ(record("Vlan10swp3", group), "exclude");
  EXPECT_EQ(record("Vlan10swp1", otherGroup), "include 192.0.2.1");
  EXPECT_EQ(record("Vlan10swp2", otherGroup), "none");
  EXPECT_EQ(record("Vlan10swp3", otherGroup), "include 192.0.2.1");
}

TEST_F(ReplayTest, IncludedSourcesOfPortsUnite) {
  hear("swp1", 0s, FrameBuilder::reportV3({isIn(group, {a, b})}).from(tv));
  hear("swp2", 0s, FrameBuilder::reportV3({isIn(group, {b, c})}).from(desk));
  replay();
  EXPECT_EQ(record("Vlan10swp1"), "include 192.0.2.2 192.0.2.3");
  EXPECT_EQ(record("Vlan10swp2"), "include 192.0.2.1 192.0.2.2");
  EXPECT_EQ(record("Vlan10swp3"), "include 192.0.2.1 192.0.2.2 192.0.2.3");
}

TEST_F(ReplayTest, OnlyWhatAllPortsExcludeIsExcluded) {
  hear("swp1", 0s, FrameBuilder::reportV3({isEx(group, {a, b})}).from(tv));
  hear("swp2", 0s, FrameBuilder::reportV3({isEx(group, {b, c})}).from(desk));
  replay();
  EXPECT_EQ(record("Vlan10swp1"), "exclude 192.0.2.2 192.0.2.3");
  EXPECT_EQ(record("Vlan10swp2"), "exclude 192.0.2.1 192.0.2.2");
  EXPECT_EQ(record("Vlan10swp3"), "exclude 192.0.2.2");
}

TEST_F(ReplayTest, ReportersOfAllVersionsCount) {
  hear("swp1", 0s, FrameBuilder::reportV1(group).from(tv));
  hear("swp2", 0s, FrameBuilder::reportV2(otherGroup).from(desk));
  hear("swp3", 0s, FrameBuilder::reportV3({allow(group, {a})}).from(tv));
  replay();
  EXPECT_EQ(record("Vlan10swp1", group), "include 192.0.2.1");
  EXPECT_EQ(record("Vlan10swp2", group), "exclude");
  EXPECT_EQ(record("Vlan10swp3", group), "exclude");
  EXPECT_EQ(record("Vlan10swp3", otherGroup), "exclude");
}

TEST_F(ReplayTest, FilterOfWhoStaysShowsExactlyWhenWhoWantsMoreLeaves) {
  hear("swp1", 0s, FrameBuilder::reportV3({isEx(group)}).from(tv));
  hear("swp1", 1s, FrameBuilder::reportV3({isIn(group, {a, b})}).from(desk));
  hear("swp1", 2s, FrameBuilder::reportV3({toIn(group)}).from(tv));
  replay(1s);
  EXPECT_EQ(record("Vlan10swp2"), "exclude");
  replay(2s);
  EXPECT_EQ(record("Vlan10swp2"), "include 192.0.2.1 192.0.2.2");
}

TEST_F(ReplayTest, ExcludeListOfWhoStaysShowsExactlyWhenWhoExcludesLessLeaves) {
  hear("swp1", 0s, FrameBuilder::reportV3({isEx(group, {a})}).from(tv));
  hear("swp1", 1s, FrameBuilder::reportV3({isEx(group, {a, b})}).from(desk));
  hear("swp1", 2s, FrameBuilder::reportV3({toIn(group)}).from(tv));
  replay(1s);
  EXPECT_EQ(record("Vlan10swp2"), "exclude 192.0.2.1");
  replay(2s);
  EXPECT_EQ(record("Vlan10swp2"), "exclude 192.0.2.1 192.0.2.2");
}

// ---- Leaving

TEST_F(ReplayTest, LeaveTakesEffectAfterRobustnessTimesLastMemberQueryInterval) {
  configuration =
      message("[defaults]\nrobustness-variable = 3\nlast-member-query-interval = 2\n", threePorts);
  hear("swp1", 0s, FrameBuilder::reportV2(group).from(tv));
  hear("swp1", 10s, FrameBuilder::leave(group).from(tv));
  replay(16s - 1ms);
  EXPECT_EQ(record("Vlan10swp2"), "exclude");
  replay(16s);
  EXPECT_EQ(record("Vlan10swp2"), "none");
}

TEST_F(ReplayTest, FastLeaveTakesEffectAtOnce) {
  configuration = message("[defaults]\nfast-leave = true\n", threePorts);
  hear("swp1", 0s, FrameBuilder::reportV2(group).from(tv));
  hear("swp1", 10s, FrameBuilder::leave(group).from(tv));
  replay();
  EXPECT_EQ(snapshot.time, 10s);
  EXPECT_EQ(record("Vlan10swp2"), "none");
}

TEST_F(ReplayTest, MembershipExpiresAtTheMembershipIntervalAfterItsLastReport) {
  configuration = message(
      "[defaults]\nrobustness-variable = 3\nquery-interval = 20\nquery-max-response-time = 5\n",
      threePorts);
  hear("swp1", 0s, FrameBuilder::reportV2(group).from(tv));
  hear("swp1", 30s, FrameBuilder::reportV2(group).from(tv));
  replay(100s - 1ms);
  EXPECT_EQ(record("Vlan10swp2"), "exclude");
  replay(100s);
  EXPECT_EQ(record("Vlan10swp2"), "none");
  EXPECT_THAT(changes("Vlan10swp2"), ElementsAre("0: none -> exclude", "100000: exclude -> none"));
}

TEST_F(ReplayTest, MembershipThatIsDueHasGoneBeforeAPacketOfTheSameTime) {
  hear("swp1", 0s, FrameBuilder::reportV2(group).from(tv));
  hear("swp1", 270s, FrameBuilder::reportV3({block(group, {a})}).from(tv));
  replay();
  EXPECT_EQ(record("Vlan10swp2"), "none") << "BLOCK of somebody unknown makes no membership";
}

// ---- Time

TEST_F(ReplayTest, EndsAtTheLastPacketsTime) {
  hear("swp1", 0s, FrameBuilder::reportV2(group).from(tv));
  hear("swp2", 12500ms, FrameBuilder::queryV3({}));
  replay();
  EXPECT_EQ(snapshot.time, 12500ms);
}

TEST_F(ReplayTest, UntilFeedsNoLaterPacket) {
  hear("swp1", 0s, FrameBuilder::reportV2(group).from(tv));
  hear("swp1", 2s, FrameBuilder::reportV2(otherGroup).from(tv));
  replay(1999ms);
  EXPECT_EQ(snapshot.time, 1999ms);
  EXPECT_EQ(record("Vlan10swp2", group), "exclude");
  EXPECT_EQ(record("Vlan10swp2", otherGroup), "none");
}

TEST_F(ReplayTest, UntilFeedsThePacketsOfItsOwnTime) {
  hear("swp1", 0s, FrameBuilder::reportV2(group).from(tv));
  hear("swp1", 2s, FrameBuilder::reportV2(otherGroup).from(tv));
  replay(2s);
  EXPECT_EQ(record("Vlan10swp2", otherGroup), "exclude");
}

TEST_F(ReplayTest, UntilAfterTheLastPacketLetsTimersExpire) {
  hear("swp1", 0s, FrameBuilder::reportV2(group).from(tv));
  replay(1000s);
  EXPECT_EQ(snapshot.time, 1000s);
  EXPECT_EQ(record("Vlan10swp2"), "none");
}

TEST_F(ReplayTest, SwitchsOwnQueriesAndReportsInTheCapturesChangeNothing) {
  constexpr IpAddr ownAddress{10, 0, 0, 100};
  auto const sentBy = [&](std::string const& port, Horix::Time time, FrameBuilder const& frame) {
    ByteVector bytes = frame.bytes();
    constexpr std::size_t lastOfSource = 11;
    bytes[lastOfSource] = static_cast<std::uint8_t>(port.back());
    captures[port].at(someTime + time, bytes);
  };
  for (char const* const port : {"swp1", "swp2", "swp3"})
    sentBy(port, 0s, FrameBuilder::queryV2(IpAddr(), 100).from(ownAddress));
  hear("swp1", 1s, FrameBuilder::reportV3({toEx(group)}).from(tv));
  sentBy("swp3", 1s + 1ms, FrameBuilder::reportV3({toEx(group)}).from(ownAddress));
  replay();
  EXPECT_EQ(record("Vlan10swp1"), "none");
  EXPECT_EQ(record("Vlan10swp3"), "exclude");
}

TEST_F(ReplayTest, TimeCountsFromTheFirstPacketOfAllCaptures) {
  hear("swp1", 5s, FrameBuilder::reportV2(group).from(tv));
  hear("swp2", 3s, FrameBuilder::queryV3({}));
  replay();
  EXPECT_EQ(snapshot.time, 2s);
  EXPECT_THAT(changes("Vlan10swp2"), ElementsAre("2000: none -> exclude"));
}

TEST_F(ReplayTest, CapturesWithoutPacketsEndAtOnce) {
  captures["swp1"];
  replay();
  EXPECT_EQ(snapshot.time, 0s);
  EXPECT_EQ(record("Vlan10swp2"), "none");
}

TEST_F(ReplayTest, TimestampsThatGoBackNeitherCrashNorTurnBackTheClock) {
  hear("swp1", 10s, FrameBuilder::reportV2(group).from(tv));
  hear("swp1", 0s, FrameBuilder::reportV2(otherGroup).from(tv));
  hear("swp1", 11s, FrameBuilder::queryV3({}));
  replay();
  EXPECT_EQ(snapshot.time, 1s);
  EXPECT_EQ(record("Vlan10swp2", group), "exclude");
  EXPECT_EQ(record("Vlan10swp2", otherGroup), "exclude");
}

// ---- Several captures

TEST_F(ReplayTest, CapturesOfOnePortAndTimeAreHeardInTheOrderOfTheCommandLine) {
  CaptureBuilder joins;
  joins.at(someTime, FrameBuilder::reportV3({toEx(group)}).from(tv));
  CaptureBuilder leaves;
  leaves.at(someTime, FrameBuilder::reportV3({toIn(group)}).from(tv));
  PortCapture const joining{Wirex::IntfId("swp1"), joins.write(directory.file("joins"))};
  PortCapture const leaving{Wirex::IntfId("swp1"), leaves.write(directory.file("leaves"))};
  replay({joining, leaving}, std::nullopt);
  EXPECT_EQ(record("Vlan10swp2"), "none");
  replay({leaving, joining}, std::nullopt);
  EXPECT_EQ(record("Vlan10swp2"), "exclude");
}

TEST_F(ReplayTest, PacketsOfOneTimeChangeRecordsOnce) {
  hear("swp1", 0s, FrameBuilder::reportV3({toEx(group)}).from(tv));
  hear("swp1", 1s, FrameBuilder::reportV3({toIn(group)}).from(tv));
  hear("swp2", 1s, FrameBuilder::reportV3({isIn(group, {a})}).from(desk));
  replay();
  EXPECT_THAT(changes("Vlan10swp3"),
              ElementsAre("0: none -> exclude", "1000: exclude -> include 192.0.2.1"));
}

TEST_F(ReplayTest, PortThatIsNotConfiguredIsRefused) {
  std::vector<PortCapture> const captured{{Wirex::IntfId("swp4"), "four.pcap"}};
  auto const refusal = [&](char const* text) -> std::string {
    try {
      requireConfiguredPorts(captured, configurationIn(text), "switch.toml");
    } catch (std::invalid_argument const& error) {
      return error.what();
    }
    return "none";
  };
  EXPECT_EQ(refusal(threePorts),
            "switch.toml has no interface \"swp4\" for capture four.pcap; "
            "it has swp1, swp2 and swp3");
  EXPECT_EQ(refusal(""),
            "switch.toml has no interface \"swp4\" for capture four.pcap; "
            "add an [[interface]] of that name");
  EXPECT_EQ(refusal("[[interface]]\nname = \"swp[5-48]\""),
            "switch.toml has no interface \"swp4\" for capture four.pcap; "
            "did you mean \"swp5\"?");
  EXPECT_EQ(refusal("[[interface]]\nname = \"ethernet[1-11]\""),
            "switch.toml has no interface \"swp4\" for capture four.pcap; it has ethernet1, "
            "ethernet2, ethernet3, ethernet4, ethernet5, ethernet6, ethernet7, ethernet8 and "
            "3 more");
  EXPECT_EQ(refusal("[[interface]]\nname = \"swp4\""), "none");
}

// ---- VLANs and ports

TEST_F(ReplayTest, VlansOfATrunkAreApart) {
  configuration = R"(
    [[interface]]
    name = "swp[1-2]"
    [[vlan]]
    id = "10,20"
    querier = { igmp-version = 2 }
    tagged-interfaces = ["swp[1-2]"]
  )";
  hear("swp1", 0s, FrameBuilder::reportV2(group).from(tv).vlan(10));
  hear("swp1", 0s, FrameBuilder::reportV2(otherGroup).from(tv).vlan(20));
  replay();
  EXPECT_EQ(record("Vlan10swp2", group), "exclude");
  EXPECT_EQ(record("Vlan10swp2", otherGroup), "none");
  EXPECT_EQ(record("Vlan20swp2", group), "none");
  EXPECT_EQ(record("Vlan20swp2", otherGroup), "exclude");
  EXPECT_EQ(host("Vlan20swp2")->igmpVersion, Igmp::IgmpVersion::v2);
}

constexpr char const* privateVlans = R"(
  [[interface]]
  name = "swp[1-3]"
  [[vlan]]
  id = 10
  querier = { igmp-version = 3 }
  interfaces = ["swp1"]
  [[vlan]]
  id = 20
  private = { type = "isolated", primary = 10 }
  querier = { igmp-version = 3 }
  interfaces = ["swp2"]
  [[vlan]]
  id = 30
  private = { type = "community", primary = 10 }
  querier = { igmp-version = 3 }
  interfaces = ["swp3"]
)";

TEST_F(ReplayTest, MembershipInASecondaryVlanCountsForThePrimaryAndItsOtherSecondaries) {
  configuration = privateVlans;
  hear("swp2", 0s, FrameBuilder::reportV2(group).from(tv));
  replay();
  EXPECT_EQ(record("Vlan10swp1"), "exclude");
  EXPECT_EQ(record("Vlan20swp2"), "none") << "its own port";
  EXPECT_EQ(record("Vlan30swp3"), "exclude");
}

TEST_F(ReplayTest, HostsOfSecondaryVlansReportMembershipInThePrimary) {
  configuration = privateVlans;
  hear("swp1", 0s, FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  replay();
  EXPECT_EQ(record("Vlan10swp1"), "none");
  EXPECT_EQ(record("Vlan20swp2"), "include 192.0.2.1");
  EXPECT_EQ(record("Vlan30swp3"), "include 192.0.2.1");
}

TEST_F(ReplayTest, VlanThatIsNotProxiedHasNoHosts) {
  configuration = R"(
    [[interface]]
    name = "swp[1-2]"
    [[vlan]]
    id = 10
    proxy = false
    querier = { igmp-version = 3 }
    interfaces = ["swp[1-2]"]
    [[vlan]]
    id = 20
    tagged-interfaces = ["swp[1-2]"]
  )";
  hear("swp1", 0s, FrameBuilder::reportV2(group).from(tv));
  replay();
  EXPECT_THAT(snapshot.hosts, IsEmpty());
}

TEST_F(ReplayTest, PortThatTakesNothingInLearnsNothingAndStillHasItsHost) {
  using Bridging::AllowedTrafficDirection;
  struct Row {
    char const* setting;
    bool learns;
    bool blocked;
    AllowedTrafficDirection direction;
  };
  for (Row const& row :
       {Row{"", true, false, AllowedTrafficDirection::both},
        Row{"blocked = true", false, true, AllowedTrafficDirection::both},
        Row{"direction = \"ingress\"", true, false, AllowedTrafficDirection::ingress},
        Row{"direction = \"egress\"", false, false, AllowedTrafficDirection::egress},
        Row{"direction = \"none\"", false, false, AllowedTrafficDirection::none}}) {
    SCOPED_TRACE(row.setting);
    configuration = message("[[interface]]\nname = \"swp1\"\n", row.setting,
                            "\n[[interface]]\nname = \"swp2\"\n[[vlan]]\nid = 10\n"
                            "querier = { igmp-version = 3 }\ninterfaces = [\"swp[1-2]\"]\n");
    captures.clear();
    hear("swp1", 0s, FrameBuilder::reportV2(group).from(tv));
    hear("swp2", 0s, FrameBuilder::reportV2(otherGroup).from(desk));
    replay();
    EXPECT_EQ(record("Vlan10swp2", group), row.learns ? "exclude" : "none");
    EXPECT_EQ(record("Vlan10swp1", otherGroup), "exclude");
    EXPECT_EQ(host("Vlan10swp1")->blocked, row.blocked);
    EXPECT_EQ(host("Vlan10swp1")->direction, row.direction);
  }
}

// ---- What is ignored

TEST_F(ReplayTest, IgnoredInputIsCountedByPortAndCause) {
  hear("swp3", 0s, FrameBuilder::reportV2(group).ttl(2));
  hear("swp3", 0s, FrameBuilder::reportV2(group).ttl(3));
  hear("swp3", 0s, FrameBuilder::reportV2(group).vlan(99));
  hear("swp1", 0s, FrameBuilder::reportV3({isEx(IpAddr(224, 0, 0, 251)), isEx(group)}).from(tv));
  replay();
  ASSERT_EQ(snapshot.ignored.size(), 2u);
  EXPECT_EQ(snapshot.ignored[0].interface, "swp1");
  EXPECT_THAT(snapshot.ignored[0].counts,
              ElementsAre(testing::Pair(Igmp::IgnoreReason::groupLinkLocal, 1)));
  EXPECT_EQ(snapshot.ignored[1].interface, "swp3");
  EXPECT_THAT(snapshot.ignored[1].counts,
              ElementsAre(testing::Pair(Igmp::IgnoreReason::badTtl, 2),
                          testing::Pair(Igmp::IgnoreReason::notInVlan, 1)));
  EXPECT_EQ(record("Vlan10swp2"), "exclude");
}

TEST_F(ReplayTest, PacketCutByTheCaptureIsIgnoredAsTruncated) {
  captures["swp1"].at(someTime, FrameBuilder::reportV2(group).bytes(), 40);
  hear("swp1", 1s, FrameBuilder::reportV2(otherGroup));
  replay();
  ASSERT_EQ(snapshot.ignored.size(), 1u);
  EXPECT_THAT(snapshot.ignored[0].counts,
              ElementsAre(testing::Pair(Igmp::IgnoreReason::truncated, 1)));
  EXPECT_EQ(record("Vlan10swp2", group), "none");
  EXPECT_EQ(record("Vlan10swp2", otherGroup), "exclude");
}

TEST_F(ReplayTest, RouterAlertAndLimitsAreAsConfiguredForTheVlan) {
  configuration =
      message(threePorts, "require-router-alert = true\nmax-groups = 1\nmax-group-sources = 1\n");
  hear("swp1", 0s, FrameBuilder::reportV2(otherGroup).withoutRouterAlert());
  hear("swp1", 0s, FrameBuilder::reportV3({isIn(group, {a}), isIn(otherGroup, {a})}).from(tv));
  hear("swp1", 0s, FrameBuilder::reportV3({allow(group, {b})}).from(tv));
  replay();
  EXPECT_EQ(record("Vlan10swp2", group), "include 192.0.2.1");
  EXPECT_EQ(record("Vlan10swp2", otherGroup), "none");
  ASSERT_EQ(snapshot.ignored.size(), 1u);
  EXPECT_THAT(snapshot.ignored[0].counts,
              ElementsAre(testing::Pair(Igmp::IgnoreReason::noRouterAlert, 1),
                          testing::Pair(Igmp::IgnoreReason::tooManyGroups, 1),
                          testing::Pair(Igmp::IgnoreReason::tooManySources, 1)));
}

// ---- Long silence

TEST_F(ReplayTest, MonthOfSilenceIsLetPass) {
  configuration += "send-query = true\n";
  hear("swp1", 0s, FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  hear("swp1", 31 * 24h, FrameBuilder::reportV3({isIn(otherGroup, {a})}).from(tv));
  replay();
  EXPECT_EQ(record("Vlan10swp2", group), "none");
  EXPECT_EQ(record("Vlan10swp2", otherGroup), "include 192.0.2.1");
}

TEST_F(ReplayTest, PacketOfAWrongClockIsRefused) {
  configuration += "send-query = true\n";
  hear("swp1", 0s, FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  hear("swp1", 400 * 24h, FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  try {
    replay();
    ADD_FAILURE() << "400 days have passed";
  } catch (CaptureError const& error) {
    EXPECT_STREQ(error.what(),
                 "nothing is heard for 400 days from 0.000000 s on, and a replay lets no more "
                 "than 31 days pass; correct the capture's clock (editcap -t), or end before with "
                 "--until");
  }
}

TEST_F(ReplayTest, EndThatIsTooFarOffIsRefused) {
  hear("swp1", 0s, FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  EXPECT_THROW(replay(32 * 24h), CaptureError);
}

// ---- Events

TEST_F(ReplayTest, EventsTellEveryChangeOfARecordAndNothingElse) {
  hear("swp1", 0s, FrameBuilder::reportV3({isIn(group, {a})}).from(tv));
  hear("swp1", 1s, FrameBuilder::reportV3({allow(group, {b})}).from(tv));
  hear("swp1", 2s, FrameBuilder::reportV3({isIn(group, {b, a})}).from(tv));  // nothing new
  hear("swp1", 3s, FrameBuilder::reportV3({toEx(group)}).from(tv));
  hear("swp1", 4s, FrameBuilder::leave(group).from(tv));
  hear("swp1", 60s, FrameBuilder::queryV3({}));
  replay();
  EXPECT_THAT(changes("Vlan10swp1"), IsEmpty());
  EXPECT_THAT(changes("Vlan10swp2"),
              ElementsAre("0: none -> include 192.0.2.1",
                          "1000: include 192.0.2.1 -> include 192.0.2.1 192.0.2.2",
                          "3000: include 192.0.2.1 192.0.2.2 -> exclude", "6000: exclude -> none"));
}

TEST_F(ReplayTest, EventsNameThePortTheReporterAndTheFrame) {
  hear("swp1", 0s, FrameBuilder::queryV3({}).from(IpAddr(10, 0, 0, 254)));
  hear("swp1", 1s, FrameBuilder::reportV2(group).from(tv));
  replay(400s);
  ASSERT_EQ(events.size(), 4u) << "two ports, added and removed";
  for (std::size_t i = 0; i < events.size(); ++i) {
    ASSERT_EQ(causes[i].size(), 1u);
    EXPECT_EQ(causes[i][0].port, Wirex::IntfId("swp1"));
    EXPECT_EQ(causes[i][0].reporter, tv);
    EXPECT_EQ(causes[i][0].frame, i < 2 ? std::optional<std::uint64_t>(2) : std::nullopt);
  }
}

TEST_F(ReplayTest, EventsOfOneTimeAreSortedByHostAndGroup) {
  configuration = R"(
    [[interface]]
    name = "swp[1,2,10]"
    [[vlan]]
    id = 10
    querier = { igmp-version = 3 }
    interfaces = ["swp[1,2,10]"]
  )";
  hear("swp1", 0s, FrameBuilder::reportV3({isEx(otherGroup), isEx(group)}).from(tv));
  replay();
  std::vector<std::string> order;
  for (auto const& [time, change] : events)
    order.push_back(message(change.host, ' ', change.group));
  EXPECT_THAT(order, ElementsAre("Vlan10swp2 239.1.1.1", "Vlan10swp2 239.2.2.2",
                                 "Vlan10swp10 239.1.1.1", "Vlan10swp10 239.2.2.2"));
}

TEST_F(ReplayTest, HostsAreSortedByVlanAndThenNaturally) {
  configuration = R"(
    [[interface]]
    name = "swp[10,2,1]"
    [[vlan]]
    id = "100,20"
    querier = { igmp-version = 3 }
    tagged-interfaces = ["swp[10,2,1]"]
  )";
  captures["swp1"];
  replay();
  std::vector<std::string> names;
  for (HostRecords const& each : snapshot.hosts) names.push_back(each.name);
  EXPECT_THAT(names, ElementsAre("Vlan20swp1", "Vlan20swp2", "Vlan20swp10", "Vlan100swp1",
                                 "Vlan100swp2", "Vlan100swp10"));
}

}  // namespace
}  // namespace Agent
