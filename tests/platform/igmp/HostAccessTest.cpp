#include "tests/platform/igmp/HostTesting.h"

/// When a host may send and hear, and how it makes up for the time when it could not.
namespace IgmpTest {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class HostAccess : public HostTest {
 protected:
  /// A state of which everything is told.
  HostAccess() {
    include(group(1), {source(1)});
    exclude(group(2), {source(2)});
    rest();
  }

  /// What tells that state as if it were new.
  static std::string everything() {
    return report({allow(group(1), {source(1)}), toEx(group(2), {source(2)})});
  }

  /// Whether a change is told.
  bool tells() {
    exclude(group(9));
    bool const told = !sent().empty();
    drop(group(9));
    rest();
    return told;
  }
  bool answers() {
    hearsGeneralQuery();
    return !sentWithin(seconds(10)).empty();
  }

  void settle() { Kel::runActivities(); }
};

/// The ways to keep a host from telling its changes.
class HostHindrance : public HostAccess, public testing::WithParamInterface<char const*> {
 protected:
  void hinder() {
    std::string const kind = GetParam();
    if (kind == "Blocked") host->blockedIs(true);
    if (kind == "IngressOnly") host->directionIs(Direction::ingress);
    if (kind == "NoDirection") host->directionIs(Direction::none);
    if (kind == "NoPam") host->pamIs(nullptr);
    if (kind == "NoVlan") host->vlanIdIs(0);
    if (kind == "NoMacAddress") macAddressIs({});
    if (kind == "NotUnasked") reportsUnaskedIs(false);
    settle();
  }
  void free() {
    std::string const kind = GetParam();
    if (kind == "Blocked") host->blockedIs(false);
    if (kind == "IngressOnly") host->directionIs(Direction::egress);
    if (kind == "NoDirection") host->directionIs(Direction::both);
    if (kind == "NoPam") host->pamIs(manager->pams[10]);
    if (kind == "NoVlan") host->vlanIdIs(10);
    if (kind == "NoMacAddress") macAddressIs(mac);
    if (kind == "NotUnasked") reportsUnaskedIs(true);
    settle();
  }
  void macAddressIs(Wirex::MacAddress const& address) {
    changeSettings([&](Igmp::HostSettings& settings) { settings.macAddress = address; });
  }
};

TEST_P(HostHindrance, SilencesTheHost) {
  hinder();
  EXPECT_THAT(sentWithin(seconds(10)), IsEmpty());
  EXPECT_FALSE(tells());
  free();
  wire->sent.clear();
  EXPECT_TRUE(tells());
}

TEST_P(HostHindrance, StopsRepetitionsAtOnce) {
  robustnessIs(7);
  exclude(group(3));
  wire->sent.clear();
  hinder();
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_P(HostHindrance, IsFollowedByAllStateAsIfItWereNew) {
  hinder();
  free();
  EXPECT_THAT(sent(), ElementsAre(everything()));
  EXPECT_THAT(sentWithin(seconds(100)),
              UnorderedElementsAre(report({allow(group(1), {source(1)})}),
                                   report({toEx(group(2), {source(2)})})));
}

TEST_P(HostHindrance, IsFollowedByWhatHasChangedMeanwhile) {
  include(group(3), {source(3), source(4)});
  exclude(group(4));
  include(group(5), {source(5)});
  exclude(group(6), {source(6)});
  rest();
  hinder();
  include(group(1), {source(1), source(11)});
  drop(group(2));
  include(group(3), {source(4)});
  exclude(group(4), {source(12)});
  exclude(group(5), {source(5)});
  include(group(6), {source(6)});
  exclude(group(7));
  free();
  Texts const first = sent();
  ASSERT_THAT(first, SizeIs(1));
  std::set<std::string> told;
  std::istringstream records(first[0]);
  for (std::string record; std::getline(records, record, ')');)
    told.insert(record.substr(record.find_first_not_of(' ')) + ')');
  EXPECT_EQ(
      told,
      (std::set{report({allow(group(1), {source(1), source(11)})}), report({toIn(group(2))}),
                report({allow(group(3), {source(4)})}), report({block(group(3), {source(3)})}),
                report({toEx(group(4), {source(12)})}), report({toEx(group(5), {source(5)})}),
                report({toIn(group(6), {source(6)})}), report({toEx(group(7))})}));
}

TEST_P(HostHindrance, IsFollowedByTheLeavesThatWereStillToBeRepeated) {
  drop(group(1));
  drop(group(2));
  wire->sent.clear();
  hinder();
  free();
  EXPECT_THAT(sent(), ElementsAre(report({block(group(1), {source(1)}), toIn(group(2))})));
}

TEST_P(HostHindrance, ThatLastsLongerThanRoutersRememberIsFollowedByNoLeaves) {
  hinder();
  drop(group(2));
  pass(seconds(271));
  free();
  EXPECT_THAT(sent(), ElementsAre(report({allow(group(1), {source(1)})})));
}

TEST_P(HostHindrance, IsNoReasonToLeave) {
  hinder();
  EXPECT_THAT(sent(), IsEmpty());
  host->enabledIs(false);
  EXPECT_THAT(sentWithin(seconds(10)), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Kinds, HostHindrance,
                         testing::Values("Blocked", "IngressOnly", "NoDirection", "NoPam", "NoVlan",
                                         "NoMacAddress", "NotUnasked"),
                         [](auto const& parameter) { return std::string(parameter.param); });

// ---- Reporting that a query begins

/// A host with a state that it begins to report because of a query.
class HostSinceQuery : public HostAccess {
 protected:
  HostSinceQuery() { reportsUnaskedIs(false); }
};

TEST_F(HostSinceQuery, TellsAllStateTogetherWithinTheUnsolicitedReportInterval) {
  reportsUnaskedSinceQuery();
  EXPECT_THAT(sent(), IsEmpty());
  auto const begun = loop.now();
  pass(seconds(1));
  auto const all = takeSent();
  ASSERT_THAT(all, testing::Not(IsEmpty()));
  EXPECT_EQ(all[0].text(), everything());
  EXPECT_GT(all[0].time, begun);
}

TEST_F(HostSinceQuery, RepeatsWhatItTells) {
  reportsUnaskedSinceQuery();
  EXPECT_THAT(sentWithin(seconds(100)),
              UnorderedElementsAre(everything(), report({allow(group(1), {source(1)})}),
                                   report({toEx(group(2), {source(2)})})));
}

TEST_F(HostSinceQuery, TellsAChangeAtOnceAndTheRestInItsTime) {
  robustnessIs(1);
  reportsUnaskedSinceQuery();
  include(group(1), {source(1), source(3)});
  exclude(group(3));
  EXPECT_THAT(sent(), ElementsAre(report({allow(group(1), {source(1), source(3)})}),
                                  report({toEx(group(3))})));
  EXPECT_THAT(sentWithin(seconds(100)), ElementsAre(report({toEx(group(2), {source(2)})})));
}

TEST_F(HostSinceQuery, LeavesAGroupOfWhichOnlyAnAnswerMayHaveTold) {
  include(group(3), {source(3)});
  reportsUnaskedSinceQuery();
  drop(group(3));
  EXPECT_THAT(sent(), ElementsAre(report({block(group(3), {source(3)})})));
}

TEST_F(HostSinceQuery, TellsInItsTimeWhatChangedBeforeIt) {
  robustnessIs(1);
  drop(group(2));
  include(group(1), {source(3)});
  reportsUnaskedSinceQuery();
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(sentWithin(seconds(100)),
              ElementsAre(report(
                  {allow(group(1), {source(3)}), block(group(1), {source(1)}), toIn(group(2))})));
}

TEST_F(HostSinceQuery, TellsAtOnceWhenItCouldNotSendBefore) {
  host->blockedIs(true);
  reportsUnaskedSinceQuery();
  host->blockedIs(false);
  settle();
  EXPECT_THAT(sent(), ElementsAre(everything()));
}

TEST_F(HostSinceQuery, TellsAtOnceWhenItIsConfiguredAgain) {
  reportsUnaskedSinceQuery();
  host->configVersionIs(2);
  settle();
  EXPECT_THAT(sent(), ElementsAre(everything()));
}

TEST_F(HostSinceQuery, LeavesWhenItGoesBeforeItHasTold) {
  reportsUnaskedSinceQuery();
  host->enabledIs(false);
  EXPECT_THAT(sent(), ElementsAre(report({block(group(1), {source(1)}), toIn(group(2))})));
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

// ---- Hearing

TEST_F(HostAccess, QueriesAreHeardWhileIngressIsAllowed) {
  EXPECT_TRUE(answers());
  host->directionIs(Direction::egress);
  rest();
  EXPECT_FALSE(answers());
  EXPECT_TRUE(tells());
  host->directionIs(Direction::both);
  rest();
  EXPECT_TRUE(answers());
}

TEST_F(HostAccess, BlockedHostHearsNothing) {
  host->blockedIs(true);
  hearsGeneralQuery();
  EXPECT_EQ(status().counters().queriesHeard, 0u);
  host->blockedIs(false);
  hearsGeneralQuery();
  EXPECT_EQ(status().counters().queriesHeard, 1u);
}

TEST_F(HostAccess, AnswerOwedBeforeAShortBlockIsGivenAfterIt) {
  reportsUnaskedIs(false);
  hears(FrameBuilder::queryV3({.maxResponseCode = 255}));
  host->blockedIs(true);
  settle();
  host->blockedIs(false);
  settle();
  EXPECT_THAT(sentWithin(seconds(3200)),
              ElementsAre(report({isIn(group(1), {source(1)}), isEx(group(2), {source(2)})})));
}

TEST_F(HostAccess, AnswerThatFallsDueWhileBlockedIsDropped) {
  reportsUnaskedIs(false);
  hears(FrameBuilder::queryV3({}));
  hears(FrameBuilder::queryV3({.group = group(1), .maxResponseCode = 1}));
  host->blockedIs(true);
  pass(seconds(10));
  host->blockedIs(false);
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostAccess, AnotherPacketAccessTakesOver) {
  auto const former = manager->pams[10];
  host->pamIs(newPam(10));
  settle();
  EXPECT_THAT(sent(), ElementsAre(everything()));
  EXPECT_TRUE(answers());
  EXPECT_EQ(former->references(), 1u);
}

TEST_F(HostAccess, FramesLeaveWithATagWhereThePortIsTagged) {
  manager->tags = true;
  exclude(group(3));
  ASSERT_THAT(wire->sent, SizeIs(1));
  auto const ethernet = Igmp::parseEthernet(wire->sent[0].bytes);
  ASSERT_TRUE(ethernet);
  EXPECT_EQ(ethernet->vlan, Bridging::VlanId(10));
}

// ---- Configured again

TEST_F(HostAccess, HostConfiguredAgainTellsAllStateOnce) {
  host->configVersionIs(2);
  host->intfConfigVersionIs(2);
  settle();
  EXPECT_THAT(sent(), ElementsAre(everything()));
  rest();
  host->intfConfigVersionIs(3);
  settle();
  EXPECT_THAT(sent(), ElementsAre(everything()));
}

TEST_F(HostAccess, SettingsTakeEffectAtOnce) {
  changeSettings([](Igmp::HostSettings& settings) {
    settings.sourceAddress = IpAddr(192, 0, 2, 77);
    settings.macAddress = {0x02, 0, 0, 0, 0, 0x55};
  });
  rest();
  exclude(group(3));
  auto const all = takeSent();
  ASSERT_THAT(all, SizeIs(1));
  EXPECT_EQ(all[0].packet.source, IpAddr(192, 0, 2, 77));
  EXPECT_EQ(all[0].frame[11], 0x55);
}

// ---- Leaving

TEST_F(HostAccess, DisabledHostLeavesWhatItHasReportedOnceAndAtOnce) {
  host->enabledIs(false);
  EXPECT_THAT(sent(), ElementsAre(report({block(group(1), {source(1)}), toIn(group(2))})));
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostAccess, DisabledHostLeavesInV2) {
  hears(FrameBuilder::queryV2(IpAddr(), 100));
  rest();
  host->enabledIs(false);
  EXPECT_THAT(sent(), ElementsAre(leave(group(1)), leave(group(2))));
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostAccess, DisabledHostTellsLeavesThatWerePending) {
  drop(group(1));
  include(group(2), {source(3)});
  wire->sent.clear();
  host->enabledIs(false);
  EXPECT_THAT(sent(), ElementsAre(report({block(group(1), {source(1)}), toIn(group(2))})));
}

TEST_F(HostAccess, DisabledHostNeitherHearsNorTells) {
  hearsGeneralQuery();
  host->enabledIs(false);
  wire->sent.clear();
  EXPECT_FALSE(tells());
  EXPECT_FALSE(answers());
}

TEST_F(HostAccess, HostEnabledAgainTellsItsState) {
  host->enabledIs(false);
  wire->sent.clear();
  drop(group(2));
  host->enabledIs(true);
  settle();
  EXPECT_THAT(sent(), ElementsAre(report({allow(group(1), {source(1)})})));
}

TEST_F(HostAccess, HostThatDoesNotReportUnaskedHasNothingToLeave) {
  reportsUnaskedIs(false);
  host->enabledIs(false);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(HostAccess, RemovedHostLeaves) {
  hosts->igmpHostDel(host->name());
  EXPECT_THAT(sent(), ElementsAre(report({block(group(1), {source(1)}), toIn(group(2))})));
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostAccess, RemovedHostWithoutPacketAccessIsSilent) {
  host->pamIs(nullptr);
  hosts->igmpHostDel(host->name());
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostAccess, MachineThatEndsFallsSilent) {
  exclude(group(3));
  hearsGeneralQuery();
  wire->sent.clear();
  machine = nullptr;
  exclude(group(4));
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
  EXPECT_TRUE(statuses->igmpHostStatus().empty());
}

// ---- The directory

TEST_F(HostAccess, MachineRunsTheHostsThatAreThereBeforeIt) {
  machine = nullptr;
  machine = Kel::make<Igmp::IgmpHostDirSm>(nullptr, hosts, statuses, wheel);
  settle();
  EXPECT_THAT(sent(), ElementsAre(everything()));
}

TEST_F(HostAccess, EveryHostHasAStatusOfItsName) {
  newHost("Vlan20swp1", 20);
  EXPECT_TRUE(statuses->igmpHostStatus("Vlan10swp1"));
  EXPECT_TRUE(statuses->igmpHostStatus("Vlan20swp1"));
  hosts->igmpHostDel("Vlan10swp1");
  EXPECT_FALSE(statuses->igmpHostStatus("Vlan10swp1"));
  EXPECT_TRUE(statuses->igmpHostStatus("Vlan20swp1"));
}

TEST_F(HostAccess, HostRemovedAndMadeAgainStartsAnew) {
  hosts->igmpHostDel(host->name());
  wire->sent.clear();
  host = newHost("Vlan10swp1", 10);
  exclude(group(3));
  EXPECT_THAT(sent(), ElementsAre(report({toEx(group(3))})));
}

TEST_F(HostAccess, ActivityIsTheOneGivenOrItsOwn) {
  auto const activity = Kel::make<Kel::ActivityConfig>();
  auto const other =
      Kel::make<Igmp::IgmpHostDirSm>(activity, Kel::make<Igmp::IgmpHostDir>(), statuses, wheel);
  EXPECT_EQ(other->activity(), activity);
  EXPECT_TRUE(machine->activity());
}

TEST_F(HostAccess, InactiveMachineHearsNothingUntilItIsActiveAgain) {
  machine->hasNotificationActiveIs(false);
  exclude(group(3));
  hearsGeneralQuery();
  newHost("Vlan20swp1", 20);
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
  machine->hasNotificationActiveIs(true);
  settle();
  EXPECT_THAT(sent(), ElementsAre(report({toEx(group(3))})));
  EXPECT_TRUE(answers());
  EXPECT_TRUE(statuses->igmpHostStatus("Vlan20swp1"));
}

// ---- Sending that strikes back

TEST_F(HostAccess, HostMayBeRemovedByWhatItSends) {
  include(group(3), sources(1, 1000));
  wire->reaction = [this] { hosts->igmpHostDelAll(); };
  robustnessIs(3);
  writeExclude(group(4));
  writeInclude(group(5), sources(1, 1000));
  host = nullptr;
  settle();
  EXPECT_TRUE(hosts->igmpHost().empty());
  EXPECT_THAT(sentWithin(seconds(100)), testing::Not(IsEmpty()));
}

TEST_F(HostAccess, HostMayBeDisabledByWhatItSends) {
  wire->reaction = [this] { host->enabledIs(false); };
  exclude(group(3));
  EXPECT_THAT(sent(),
              ElementsAre(report({toEx(group(3))}),
                          report({block(group(1), {source(1)}), toIn(group(2)), toIn(group(3))})));
}

TEST_F(HostAccess, RecordsMayBeChangedByWhatIsSent) {
  wire->reaction = [this] {
    wire->reaction = nullptr;
    host->v3groupDelAll();
  };
  exclude(group(3));
  EXPECT_THAT(sent(),
              ElementsAre(report({toEx(group(3))}),
                          report({block(group(1), {source(1)}), toIn(group(2)), toIn(group(3))})));
}

TEST_F(HostAccess, MachineMayEndByWhatItSends) {
  wire->reaction = [this] { machine = nullptr; };
  exclude(group(3));
  EXPECT_THAT(sent(), SizeIs(1));
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

}  // namespace IgmpTest
