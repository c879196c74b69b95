#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/TraceCapture.h"
#include "tests/platform/snooping/MembershipTesting.h"
#include "tests/platform/snooping/SnoopedVlans.h"

namespace {

using namespace SnoopingTest;
using namespace IgmpTest;
using namespace std::chrono_literals;
using Bridging::VlanId;
using Bridging::IgmpSnooping::OtherQuerier;
using Bridging::IgmpSnooping::QuerierSettings;
using Bridging::IgmpSnooping::QueryCourse;
using Bridging::IgmpSnooping::QueryNeed;
using Bridging::IgmpSnooping::QueryPort;
using Bridging::IgmpSnooping::ReportBatch;
using Bridging::IgmpSnooping::SnoopingPolicy;
using Bridging::IgmpSnooping::VlanQuerier;
using Bridging::IgmpSnooping::Proxy::Testing::TraceCapture;
using Igmp::IgmpVersion;
using testing::AllOf;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

constexpr IpAddr self{192, 0, 2, 50};
constexpr IpAddr lower{192, 0, 2, 49};
constexpr IpAddr higher{192, 0, 2, 51};

VlanId const vlan10(10);
VlanId const vlan11(11);

/// A port that keeps the queries that leave through it.
class Port final : public QueryPort {
 public:
  struct Sent {
    VlanId vlan;
    IpAddr source;
    IpAddr destination;
    Igmp::Query query;
    SentQuery content;
  };

  explicit Port(char const* name) : intfId_(name) {}

  IntfId const& intfId() const override { return intfId_; }
  std::size_t mtu() const override { return size; }
  Wirex::MacAddress const& macAddress() const override { return mac; }
  bool canSend() const override { return up; }
  bool send(VlanId vlan, IpAddr source, IpAddr destination, Wirex::Bytes message) override {
    if (!up) return false;
    ByteVector bytes(message.begin(), message.end());
    writeChecksum(bytes, 0, bytes.size(), 2);
    auto const parsed = Igmp::parseMessage(bytes);
    auto const& query = std::get<Igmp::Query>(*parsed);
    sent.push_back({vlan, source, destination, query, sentQuery(query)});
    sent.back().query.sources = {};  // the bytes end here
    return true;
  }

  /// What was sent since the last call.
  std::vector<SentQuery> take() {
    std::vector<SentQuery> queries;
    for (Sent& each : std::exchange(sent, {})) queries.push_back(std::move(each.content));
    return queries;
  }

  static constexpr Wirex::MacAddress mac{2, 0, 0, 0, 0, 5};

  bool up = true;
  std::size_t size = 1500;
  std::vector<Sent> sent;

 private:
  IntfId intfId_;
};

class VlanQuerierTest : public testing::Test {
 protected:
  VlanQuerierTest() {
    settings.sendsQueries = true;
    settings.source = self;
    querier().portIs(vlan10, swp1);
    querier().portIs(vlan10, swp2);
  }

  VlanQuerier& querier() { return vlan.querier; }
  void start() {
    apply();
    swp1.take();
    swp2.take();
  }
  void apply() { querier().settingsIs(settings, policy); }
  /// A query whose sender has a MAC address above the port's, or below it.
  void hears(IpAddr source, Igmp::Query const& query, bool hasLowerMac = false) {
    OtherQuerier sender{source,        {2, 0, 0, 0, 0, 9}, swp1.intfId(),
                        query.version, query.robustness,   query.queryInterval};
    if (hasLowerMac) sender.macAddress = {2, 0, 0, 0, 0, 1};
    querier().queryHeard(swp1, sender, query);
  }
  /// A general query that says nothing of its sender's values.
  void hears(IpAddr source, IgmpVersion version = IgmpVersion::v3) {
    hears(source, asked(version));
  }
  void hearsFromNoAddress(bool hasLowerMac) {
    hears(IpAddr(), asked(IgmpVersion::v3), hasLowerMac);
  }
  static Igmp::Query asked(IgmpVersion version, unsigned robustness = 0,
                           std::chrono::seconds interval = {}) {
    Igmp::Query query;
    query.version = version;
    query.maxResponseTime = 10s;
    query.robustness = static_cast<std::uint8_t>(robustness);
    query.queryInterval = interval;
    return query;
  }
  IpAddr elected() { return querier().otherQuerier() ? querier().otherQuerier()->address : self; }
  void passes(Horix::Time time) { wheel->advanceTo(wheel->now() + time); }

  void reports(Port const& port, IpAddr reporter, Record const& record) {
    vlan.learning.record(port.intfId(), reporter, *ParsedRecord(record));
  }
  void joins(Port const& port, IpAddr reporter) {
    vlan.learning.report(port.intfId(), reporter, group);
  }
  /// An IGMPv2 leave.
  void leaves(Port& port, IpAddr reporter) {
    vlan.learning.leave(port.intfId(), reporter, group);
    querier().inquire(vlan10, port, group, {.group = true, .sources = {}});
  }
  void withdraws(Port& port, std::vector<IpAddr> sources) {
    querier().inquire(vlan10, port, group, {.group = false, .sources = std::move(sources)});
  }

  ReportBatch batch;
  SnoopingPolicy policy;
  QuerierSettings settings;
  Kel::Ptr<Horix::TimerWheel> wheel =
      Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>());
  Vlan vlan{10, {}, batch, wheel};
  Port swp1{"swp1"};
  Port swp2{"swp2"};
};

// ---- General queries

TEST_F(VlanQuerierTest, SendsNothingWhereItIsOff) {
  passes(1000s);
  joins(swp1, host);
  leaves(swp1, host);
  querier().portIsUp(vlan10, swp1);
  EXPECT_FALSE(querier().isQuerier());
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, BeginsWithAsManyQueriesAtAQuarterOfTheIntervalAsItIsRobust) {
  policy.robustnessVariable = 3;
  policy.queryInterval = 100s;
  apply();
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
  for (int startup = 1; startup < 3; ++startup) {
    passes(25s - 1ms);
    EXPECT_THAT(swp1.take(), IsEmpty());
    passes(1ms);
    EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
  }
  for (int i = 0; i < 3; ++i) {
    passes(100s - 1ms);
    EXPECT_THAT(swp1.take(), IsEmpty());
    passes(1ms);
    EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
  }
}

TEST_F(VlanQuerierTest, GeneralQueryGoesOutOnEveryPort) {
  apply();
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
  EXPECT_THAT(swp2.take(), ElementsAre(generalQuery));
}

TEST_F(VlanQuerierTest, QueriesPortsOfSecondaryVlansInTheirVlan) {
  Port swp3("swp3");
  querier().portIs(vlan11, swp3);
  apply();
  ASSERT_THAT(swp3.sent, SizeIs(1));
  EXPECT_EQ(swp3.sent.front().vlan, vlan11);
  EXPECT_EQ(swp1.sent.front().vlan, vlan10);
  querier().portDel(vlan11, swp3);
}

TEST_F(VlanQuerierTest, GeneralQueryOfVersion3SaysItsVariables) {
  policy.robustnessVariable = 3;
  policy.queryInterval = 60s;
  policy.queryMaxResponseTime = 5s;
  apply();
  ASSERT_THAT(swp1.sent, SizeIs(1));
  auto const& sent = swp1.sent.front();
  EXPECT_EQ(sent.source, self);
  EXPECT_EQ(sent.destination, IpAddr(224, 0, 0, 1));
  EXPECT_EQ(sent.query.version, IgmpVersion::v3);
  EXPECT_EQ(sent.query.maxResponseTime, 5s);
  EXPECT_EQ(sent.query.robustness, 3);
  EXPECT_EQ(sent.query.queryInterval, 60s);
  EXPECT_FALSE(sent.query.suppressesRouters);
}

TEST_F(VlanQuerierTest, SpeaksTheConfiguredVersion) {
  for (auto const version : {IgmpVersion::v1, IgmpVersion::v2, IgmpVersion::v3}) {
    settings.sendsQueries = false;
    apply();
    settings.sendsQueries = true;
    settings.version = version;
    swp1.sent.clear();
    apply();
    ASSERT_THAT(swp1.sent, SizeIs(1));
    EXPECT_EQ(swp1.sent.front().query.version, version);
    EXPECT_EQ(swp1.sent.front().query.maxResponseTime, 10s);
  }
}

TEST_F(VlanQuerierTest, PortThatComesUpIsAskedAtOnce) {
  start();
  querier().portIsUp(vlan10, swp1);
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
  EXPECT_THAT(swp2.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, PortThatComesToTheVlanIsAskedAtOnceAndLikeTheOthersFromThenOn) {
  start();
  Port swp3("swp3");
  querier().portIs(vlan10, swp3);
  EXPECT_THAT(swp3.take(), ElementsAre(generalQuery));
  passes(policy.startupQueryInterval());
  EXPECT_THAT(swp3.take(), ElementsAre(generalQuery));
  querier().portDel(vlan10, swp3);
  passes(1000s);
  EXPECT_THAT(swp3.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, SentQueriesAreCountedOnEachPortThatCouldSend) {
  swp2.up = false;
  apply();
  EXPECT_EQ(querier().sent().general, 1u);
  joins(swp1, host);
  leaves(swp1, host);
  withdraws(swp1, {a});
  EXPECT_EQ(querier().sent().groupSpecific, 2u) << "the second goes with that for the source";
  EXPECT_EQ(querier().sent().groupAndSourceSpecific, 1u);
}

// ---- Settings

TEST_F(VlanQuerierTest, IsSilentOnceItIsSwitchedOff) {
  start();
  joins(swp1, host);
  leaves(swp1, host);
  swp1.take();
  settings.sendsQueries = false;
  apply();
  passes(1000s);
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, BeginsAnewWhenItIsSwitchedOnAgain) {
  start();
  passes(1000s);
  settings.sendsQueries = false;
  apply();
  swp1.take();
  settings.sendsQueries = true;
  apply();
  EXPECT_TRUE(querier().isQuerier());
  passes(policy.startupQueryInterval());
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery, generalQuery));
}

TEST_F(VlanQuerierTest, UnchangedSettingsDisturbNothing) {
  start();
  passes(10s);
  apply();
  passes(policy.startupQueryInterval() - 10s - 1ms);
  EXPECT_THAT(swp1.take(), IsEmpty());
  passes(1ms);
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
}

TEST_F(VlanQuerierTest, ShorterIntervalHoldsAtOnce) {
  start();
  passes(policy.startupQueryInterval() + 1s);
  swp1.take();
  policy.queryInterval = 10s;
  apply();
  passes(10s);
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
}

TEST_F(VlanQuerierTest, LongerIntervalHoldsFromTheNextQueryOn) {
  start();
  passes(policy.startupQueryInterval());
  policy.queryInterval = 1000s;
  apply();
  swp1.take();
  passes(125s);
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
  passes(1000s - 1ms);
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, ChangedVersionAndSourceHoldFromTheNextQueryOn) {
  start();
  settings.version = IgmpVersion::v2;
  settings.source = higher;
  apply();
  EXPECT_THAT(swp1.sent, IsEmpty());
  passes(policy.startupQueryInterval());
  ASSERT_THAT(swp1.sent, SizeIs(1));
  EXPECT_EQ(swp1.sent.front().query.version, IgmpVersion::v2);
  EXPECT_EQ(swp1.sent.front().source, higher);
}

// ---- Election

TEST_F(VlanQuerierTest, QuerierOfALowerAddressSilencesItForAsLongAsItIsTakenToBeThere) {
  policy.robustnessVariable = 3;
  start();
  hears(lower, asked(IgmpVersion::v3, 2, 125s));
  EXPECT_FALSE(querier().isQuerier());
  EXPECT_EQ(elected(), lower);
  passes(255s - 1ms);
  EXPECT_THAT(swp1.take(), IsEmpty());
  passes(1ms);
  EXPECT_TRUE(querier().isQuerier());
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
  passes(125s - 1ms);
  EXPECT_THAT(swp1.take(), IsEmpty()) << "no second start";
  passes(1ms);
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
}

TEST_F(VlanQuerierTest, EveryQueryOfTheElectedOneKeepsItSilent) {
  start();
  for (int i = 0; i < 10; ++i) {
    hears(lower);
    passes(125s);
  }
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, QuerierOfAHigherAddressLosesTheElection) {
  start();
  hears(higher);
  hears(self);
  EXPECT_TRUE(querier().isQuerier());
  EXPECT_EQ(elected(), self);
}

TEST_F(VlanQuerierTest, QuerierWithoutAnAddressLosesToOneThatHasOne) {
  start();
  hearsFromNoAddress(true);
  EXPECT_TRUE(querier().isQuerier());
}

TEST_F(VlanQuerierTest, OfTwoWithoutAnAddressTheLowerMacAddressWins) {
  settings.source = IpAddr();
  start();
  hearsFromNoAddress(false);
  EXPECT_TRUE(querier().isQuerier());
  hearsFromNoAddress(true);
  EXPECT_FALSE(querier().isQuerier());
  apply();
  EXPECT_FALSE(querier().isQuerier()) << "settings that are the same";
  passes(255s - 1ms);
  EXPECT_THAT(swp1.take(), IsEmpty());
  passes(1ms);
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
}

TEST_F(VlanQuerierTest, WhoGetsAnAddressWinsOverOneThatHasNone) {
  settings.source = IpAddr();
  start();
  hearsFromNoAddress(true);
  settings.source = self;
  apply();
  EXPECT_TRUE(querier().isQuerier());
  EXPECT_THAT(swp1.take(), SizeIs(1));
}

TEST_F(VlanQuerierTest, WithoutAnAddressOfItsOwnItLosesToEveryOther) {
  settings.source = IpAddr();
  start();
  hears(IpAddr(223, 255, 255, 255));
  EXPECT_FALSE(querier().isQuerier());
}

TEST_F(VlanQuerierTest, AddressThatIsNowTheLowestWinsTheElectionAtOnce) {
  start();
  hears(lower);
  settings.source = IpAddr(192, 0, 2, 1);
  apply();
  EXPECT_TRUE(querier().isQuerier());
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
}

TEST_F(VlanQuerierTest, LostElectionEndsWhatWasBeingAskedFor) {
  start();
  joins(swp1, host);
  leaves(swp1, host);
  hears(lower);
  swp1.take();
  passes(10s);
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, WhoIsNotElectedAsksForNoGroupAndNoNewPort) {
  start();
  hears(lower);
  joins(swp1, host);
  leaves(swp1, host);
  withdraws(swp1, {a});
  querier().portIsUp(vlan10, swp1);
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, SwitchedOnItGivesWayToOneThatWasHeardBefore) {
  hears(lower);
  apply();
  EXPECT_FALSE(querier().isQuerier());
  EXPECT_THAT(swp1.take(), IsEmpty());
  passes(255s);
  EXPECT_TRUE(querier().isQuerier());
}

TEST_F(VlanQuerierTest, SwitchedOnItWinsOverOneOfAHigherAddressThatWasHeardBefore) {
  hears(higher);
  EXPECT_EQ(elected(), higher);
  apply();
  EXPECT_TRUE(querier().isQuerier());
}

TEST_F(VlanQuerierTest, OneQueryDoesNotSilenceItForLongerThanItsOwnValuesAllow) {
  start();
  hears(lower, asked(IgmpVersion::v3, 7, 31744s));
  passes(255s - 1ms);
  EXPECT_FALSE(querier().isQuerier());
  passes(1ms);
  EXPECT_TRUE(querier().isQuerier());
}

TEST_F(VlanQuerierTest, OfSeveralOthersTheLowestIsElected) {
  hears(higher);
  hears(lower);
  hears(higher);
  EXPECT_EQ(elected(), lower);
  hears(IpAddr());
  EXPECT_EQ(elected(), lower);
  passes(255s);
  EXPECT_FALSE(querier().otherQuerier());
  hears(higher);
  EXPECT_EQ(elected(), higher);
}

TEST_F(VlanQuerierTest, EveryOtherOutcomeOfTheElectionIsToldOnce) {
  std::vector<IpAddr> told;
  querier().onElectionIs([&](VlanQuerier const&) { told.push_back(elected()); });
  apply();
  EXPECT_THAT(std::exchange(told, {}), ElementsAre(self));
  apply();
  hears(higher);
  EXPECT_THAT(std::exchange(told, {}), IsEmpty());
  hears(lower);
  hears(lower);
  passes(254s);
  EXPECT_THAT(std::exchange(told, {}), ElementsAre(lower));
  passes(1s);
  EXPECT_THAT(std::exchange(told, {}), ElementsAre(self));
}

TEST_F(VlanQuerierTest, ElectionOfOneWithoutAnAddressIsTold) {
  settings.source = IpAddr();
  start();
  std::vector<Wirex::MacAddress> told;
  querier().onElectionIs([&](VlanQuerier const& querier) {
    told.push_back(querier.otherQuerier() ? querier.otherQuerier()->macAddress : Port::mac);
  });
  hearsFromNoAddress(true);
  hearsFromNoAddress(true);
  EXPECT_THAT(told, ElementsAre(Wirex::MacAddress{2, 0, 0, 0, 0, 1}));
}

// ---- What the elected one says of itself

TEST_F(VlanQuerierTest, LearningCountsInTheElectedQueriersValues) {
  apply();
  hears(lower, asked(IgmpVersion::v3, 3, 60s));
  EXPECT_EQ(vlan.learning.policy().groupMembershipInterval(), 200s);
  EXPECT_EQ(querier().policy().groupMembershipInterval(), 270s) << "as configured";
  passes(255s);
  EXPECT_EQ(vlan.learning.policy().groupMembershipInterval(), 270s) << "it is gone";
}

TEST_F(VlanQuerierTest, ValuesThatAQueryDoesNotCarryAreTheConfiguredOnes) {
  apply();
  hears(lower, asked(IgmpVersion::v3, 3));
  EXPECT_EQ(vlan.learning.policy().groupMembershipInterval(), 395s);
  hears(lower, asked(IgmpVersion::v2));
  EXPECT_EQ(vlan.learning.policy().groupMembershipInterval(), 270s);
}

TEST_F(VlanQuerierTest, ValuesOfAQuerierThatIsNotElectedDoNotCount) {
  apply();
  hears(higher, asked(IgmpVersion::v3, 7, 1000s));
  EXPECT_EQ(vlan.learning.policy().groupMembershipInterval(), 270s);
}

TEST_F(VlanQuerierTest, NewSettingsKeepTheElectedQueriersValues) {
  apply();
  hears(lower, asked(IgmpVersion::v3, 3, 60s));
  policy.queryMaxResponseTime = 20s;
  apply();
  EXPECT_EQ(vlan.learning.policy().groupMembershipInterval(), 220s);
}

TEST_F(VlanQuerierTest, ItsVersionIsTheElectedOnesOrElseTheConfiguredOne) {
  settings.version = IgmpVersion::v2;
  apply();
  EXPECT_EQ(querier().version(), IgmpVersion::v2);
  hears(lower, IgmpVersion::v1);
  EXPECT_EQ(querier().version(), IgmpVersion::v1);
  passes(255s);
  EXPECT_EQ(querier().version(), IgmpVersion::v2);
}

// ---- Who hears what is sent

TEST_F(VlanQuerierTest, QueryOnAllPortsIsToldOncePerVlan) {
  querier().portIs(vlan11, swp1);
  std::vector<VlanId> told;
  querier().onSentIs([&](VlanId in, Igmp::Query const& query) {
    EXPECT_TRUE(query.isGeneral());
    EXPECT_EQ(query.maxResponseTime, 10s);
    told.push_back(in);
  });
  apply();
  EXPECT_THAT(told, ElementsAre(vlan10, vlan11));
}

TEST_F(VlanQuerierTest, QueryThatNoPortCanSendIsNotTold) {
  swp1.up = swp2.up = false;
  querier().onSentIs([](VlanId, Igmp::Query const&) { ADD_FAILURE() << "nothing was sent"; });
  apply();
}

TEST_F(VlanQuerierTest, GroupAndSourceQueriesAreTold) {
  start();
  reports(swp1, host, isIn(group, {a, b}));
  std::vector<SentQuery> told;
  querier().onSentIs([&](VlanId, Igmp::Query const& query) { told.push_back(sentQuery(query)); });
  withdraws(swp1, {a});
  EXPECT_EQ(told, swp1.take());
  EXPECT_THAT(told, SizeIs(1));
}

// ---- One that goes on in the place of another one

class GoneOnQuerierTest : public VlanQuerierTest {
 protected:
  /// As after another querier's start-up, with ports that are about to come up.
  void goOn(QueryCourse const& course) {
    swp1.up = swp2.up = false;
    apply();
    querier().goOnFrom(course);
  }
  void comesUp(Port& port) {
    port.up = true;
    querier().portIsUp(vlan10, port);
  }
};

TEST_F(GoneOnQuerierTest, AsksWhenTheFormerOneWouldHave) {
  goOn({.next = 30s, .startupQueriesLeft = 0, .asked = {{swp1.intfId(), vlan10}}});
  comesUp(swp1);
  passes(30s - 1ms);
  EXPECT_THAT(swp1.take(), IsEmpty());
  passes(1ms);
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
  passes(policy.queryInterval - 1ms);
  EXPECT_THAT(swp1.take(), IsEmpty()) << "the start-up is over";
}

TEST_F(GoneOnQuerierTest, AsksPortsAtOnceThatTheFormerOneDidNot) {
  goOn({.next = 30s, .startupQueriesLeft = 0, .asked = {{swp1.intfId(), vlan10}}});
  comesUp(swp2);
  EXPECT_THAT(swp2.take(), ElementsAre(generalQuery));
}

TEST_F(GoneOnQuerierTest, AsksAPortAtOnceThatComesUpAgain) {
  goOn({.next = 30s, .startupQueriesLeft = 0, .asked = {{swp1.intfId(), vlan10}}});
  comesUp(swp1);
  comesUp(swp1);
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
}

TEST_F(GoneOnQuerierTest, AsksPortsAtOnceThatComeUpLater) {
  goOn({.next = 30s, .startupQueriesLeft = 0, .asked = {{swp1.intfId(), vlan10}}});
  querier().askedBeforeDelAll();
  comesUp(swp1);
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
}

TEST_F(GoneOnQuerierTest, EndsTheStartUpThatTheFormerOneHadBegun) {
  policy.robustnessVariable = 3;
  policy.queryInterval = 100s;
  goOn({.next = 10s, .startupQueriesLeft = 2, .asked = {{swp1.intfId(), vlan10}}});
  comesUp(swp1);
  for (Horix::Time const pause : {10s, 25s, 100s}) {
    passes(pause - 1ms);
    EXPECT_THAT(swp1.take(), IsEmpty());
    passes(1ms);
    EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
  }
}

TEST_F(GoneOnQuerierTest, WaitsNoLongerThanItsOwnInterval) {
  goOn({.next = 1000s, .startupQueriesLeft = 0, .asked = {}});
  swp1.up = true;
  passes(policy.queryInterval);
  EXPECT_THAT(swp1.take(), ElementsAre(generalQuery));
}

TEST_F(GoneOnQuerierTest, LeavesItToOneThatIsElected) {
  start();
  hears(lower);
  EXPECT_FALSE(querier().course());
  querier().goOnFrom({.next = 1s, .startupQueriesLeft = 2, .asked = {}});
  passes(100s);
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(GoneOnQuerierTest, TellsHowFarItHasGot) {
  policy.robustnessVariable = 3;
  policy.queryInterval = 100s;
  apply();
  swp2.up = false;
  auto const course = querier().course();
  ASSERT_TRUE(course);
  EXPECT_EQ(course->next, 25s);
  EXPECT_EQ(course->startupQueriesLeft, 2u);
  EXPECT_EQ(course->asked, (std::vector<QueryCourse::PortVlan>{{swp1.intfId(), vlan10}}));
}

// ---- Other versions

TEST_F(VlanQuerierTest, EachOtherVersionIsToldOnceAnHour) {
  settings.version = IgmpVersion::v2;
  start();
  std::vector<std::pair<IpAddr, IgmpVersion>> told;
  querier().onOtherVersionIs([&](Bridging::IgmpSnooping::OtherVersion const& other) {
    EXPECT_EQ(other.vlanId, vlan10);
    EXPECT_EQ(other.intfId, swp1.intfId());
    EXPECT_EQ(other.configured, IgmpVersion::v2);
    told.emplace_back(other.querier, other.heard);
  });
  for (int i = 0; i < 2; ++i) {
    hears(lower, IgmpVersion::v1);
    hears(higher, IgmpVersion::v1);
    hears(higher, IgmpVersion::v2);
    hears(higher, IgmpVersion::v3);
  }
  EXPECT_THAT(told, ElementsAre(Pair(lower, IgmpVersion::v1), Pair(higher, IgmpVersion::v3)));
  told.clear();
  passes(1h - 1ms);
  hears(lower, IgmpVersion::v1);
  EXPECT_THAT(told, IsEmpty());
  passes(1ms);
  hears(lower, IgmpVersion::v1);
  EXPECT_THAT(told, ElementsAre(Pair(lower, IgmpVersion::v1)));
}

TEST_F(VlanQuerierTest, OffItTellsOfNoOtherVersion) {
  querier().onOtherVersionIs(
      [](auto const&) { ADD_FAILURE() << "who does not query may hear any"; });
  hears(lower, IgmpVersion::v2);
}

// ---- Leaves

TEST_F(VlanQuerierTest, LeaveIsAskedAboutOnItsPortAsOftenAsTheQuerierIsRobust) {
  policy.robustnessVariable = 3;
  policy.lastMemberQueryInterval = 2s;
  start();
  joins(swp1, host);
  leaves(swp1, host);
  ASSERT_THAT(swp1.sent, SizeIs(1));
  EXPECT_EQ(swp1.sent.front().source, self);
  EXPECT_EQ(swp1.sent.front().destination, group);
  EXPECT_EQ(swp1.sent.front().query.maxResponseTime, 2s);
  EXPECT_EQ(swp1.sent.front().query.robustness, 3);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group}));
  passes(2s - 1ms);
  EXPECT_THAT(swp1.take(), IsEmpty());
  passes(1ms);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group}));
  passes(2s);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group}));
  passes(10s);
  EXPECT_THAT(swp1.take(), IsEmpty());
  EXPECT_THAT(swp2.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, RoutersAreNotToLowerTheirTimersWhereOthersWantTheGroup) {
  start();
  joins(swp1, host);
  joins(swp1, otherHost);
  leaves(swp1, host);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group, {}, true}));
}

TEST_F(VlanQuerierTest, AnswerMakesTheNextQueryOneThatLowersNoTimers) {
  start();
  joins(swp1, host);
  leaves(swp1, host);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group}));
  passes(500ms);
  joins(swp1, otherHost);
  passes(500ms);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group, {}, true}));
}

TEST_F(VlanQuerierTest, MembersOfAnotherPortDoNotAnswerForThisOne) {
  start();
  joins(swp1, host);
  joins(swp2, otherHost);
  leaves(swp1, host);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group}));
}

TEST_F(VlanQuerierTest, LeaveWhileTheGroupIsAskedForHasItAskedForAgainInItsTurn) {
  start();
  joins(swp1, host);
  joins(swp1, otherHost);
  leaves(swp1, host);
  swp1.take();
  passes(400ms);
  leaves(swp1, otherHost);
  EXPECT_THAT(swp1.take(), IsEmpty());
  passes(600ms);
  EXPECT_THAT(swp1.take(), SizeIs(1));
  passes(1s);
  EXPECT_THAT(swp1.take(), SizeIs(1));
  passes(10s);
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, PortsAndGroupsAreAskedForOnTheirOwn) {
  start();
  joins(swp1, host);
  joins(swp2, host);
  leaves(swp1, host);
  leaves(swp2, host);
  querier().inquire(vlan10, swp1, otherGroup, {.group = true, .sources = {}});
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group}, SentQuery{otherGroup}));
  EXPECT_THAT(swp2.take(), ElementsAre(SentQuery{group}));
}

TEST_F(VlanQuerierTest, PortThatLeavesTheVlanIsAskedNoMore) {
  start();
  joins(swp1, host);
  leaves(swp1, host);
  swp1.take();
  querier().portDel(vlan10, swp1);
  passes(10s);
  EXPECT_THAT(swp1.take(), IsEmpty());
  leaves(swp1, host);
  EXPECT_THAT(swp1.take(), IsEmpty());
  querier().portIs(vlan10, swp1);
  swp1.take();
  leaves(swp1, host);
  EXPECT_THAT(swp1.take(), SizeIs(1)) << "nothing is left of what was asked before";
}

TEST_F(VlanQuerierTest, LeaverIsNobodyWhoStillWantsTheGroupWhenTimeIsBetweenTicks) {
  start();
  passes(300us);
  joins(swp1, host);
  leaves(swp1, host);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group}));
}

// ---- Sources

TEST_F(VlanQuerierTest, WithdrawnSourcesAreAskedFor) {
  start();
  withdraws(swp1, {b, a});
  EXPECT_EQ(swp1.sent.front().destination, group);
  EXPECT_EQ(swp1.sent.front().query.maxResponseTime, 1s);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group, {a, b}}));
  passes(1s);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group, {a, b}}));
  passes(10s);
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, SourcesThatOthersWantAreAskedForInAQueryOfTheirOwn) {
  start();
  reports(swp1, otherHost, isIn(group, {a}));
  withdraws(swp1, {a, b});
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group, {a}, true}, SentQuery{group, {b}, false}));
}

TEST_F(VlanQuerierTest, WhoExcludesOtherSourcesWantsThisOne) {
  start();
  reports(swp1, otherHost, isEx(group, {b}));
  withdraws(swp1, {a, b});
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group, {a}, true}, SentQuery{group, {b}, false}));
}

TEST_F(VlanQuerierTest, MoreSourcesAreAskedForAtOnceTogetherWithThoseUnderWay) {
  start();
  withdraws(swp1, {a});
  passes(500ms);
  swp1.take();
  withdraws(swp1, {b});
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group, {a, b}}));
  passes(1s);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group, {b}}));
  passes(10s);
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, GroupAndSourcesAreAskedForTogether) {
  start();
  reports(swp1, otherHost, isIn(group, {a}));
  withdraws(swp1, {a, b});
  swp1.take();
  querier().inquire(vlan10, swp1, group, {.group = true, .sources = {}});
  // RFC 9776 section 6.6.3.2: the one for the wanted sources may be left out.
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group}, SentQuery{group, {b}}));
}

TEST_F(VlanQuerierTest, SourcesThatDoNotFitTheLinkAreAskedForInSeveralQueries) {
  swp1.size = 24 + 12 + 4 * 8;
  start();
  std::vector<IpAddr> sources;
  for (std::uint8_t i = 1; i <= 10; ++i) sources.emplace_back(198, 51, 100, i);
  withdraws(swp1, sources);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group, {sources.begin(), sources.begin() + 8}},
                                       SentQuery{group, {sources.begin() + 8, sources.end()}}));
}

// ---- Many groups, sources and reporters

TEST_F(VlanQuerierTest, PortIsAskedForNoMoreGroupsAtOnceThanItMayHave) {
  policy.maxInterfaceGroups = 3;
  start();
  auto const withdrawsGroup = [&](Port& port, std::uint32_t number) {
    querier().inquire(vlan10, port, IpAddr(group.value() + number), {.group = true, .sources = {}});
  };
  for (std::uint32_t i = 0; i < 5; ++i) withdrawsGroup(swp1, i);
  EXPECT_THAT(swp1.take(), SizeIs(3));
  withdrawsGroup(swp2, 4);
  EXPECT_THAT(swp2.take(), SizeIs(1)) << "another port is asked for as many";
  passes(10s);
  swp1.take();
  withdrawsGroup(swp1, 4);
  EXPECT_THAT(swp1.take(), SizeIs(1)) << "there is room again when asking has come to its end";
}

TEST_F(VlanQuerierTest, PortIsAskedForNoMoreSourcesAtOnceThanItMayHave) {
  policy.maxInterfaceSources = 2;
  start();
  withdraws(swp1, {a, b, c});
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group, {a, b}}));
  withdraws(swp1, {c});
  querier().inquire(vlan10, swp1, otherGroup, {.group = false, .sources = {a}});
  EXPECT_THAT(swp1.take(), IsEmpty());
  passes(10s);
  swp1.take();
  withdraws(swp1, {c});
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group, {c}}));
}

TEST_F(VlanQuerierTest, MoreOfManySourcesWaitForEachOther) {
  start();
  std::vector<IpAddr> many;
  for (std::uint32_t i = 1; i <= 300; ++i) many.emplace_back(IpAddr(198, 51, 0, 0).value() + i);
  withdraws(swp1, many);
  EXPECT_THAT(swp1.take(), SizeIs(1));
  withdraws(swp1, {a});
  withdraws(swp1, {b});
  EXPECT_THAT(swp1.take(), IsEmpty());
  passes(10ms);
  std::vector<SentQuery> const sent = swp1.take();
  ASSERT_THAT(sent, SizeIs(1));
  EXPECT_THAT(sent.front().sources, SizeIs(302));
  passes(5s);
  EXPECT_THAT(swp1.take(), SizeIs(1)) << "the later ones once more";
  passes(5s);
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, SourceThatIsNotFoundAmongVeryManyReportersIsAskedForAsUnwanted) {
  start();
  for (std::uint32_t i = 0; i < 5000; ++i)
    reports(swp1, IpAddr(IpAddr(10, 5, 0, 0).value() + i), isIn(group, {b}));
  reports(swp1, otherHost, isIn(group, {a}));
  withdraws(swp1, {a});
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group, {a}, false}));
}

// ---- Older versions

TEST_F(VlanQuerierTest, Version2AsksForTheGroupOnly) {
  settings.version = IgmpVersion::v2;
  start();
  joins(swp1, host);
  leaves(swp1, host);
  ASSERT_THAT(swp1.sent, SizeIs(1));
  EXPECT_EQ(swp1.sent.front().query.version, IgmpVersion::v2);
  EXPECT_EQ(swp1.sent.front().query.maxResponseTime, 1s);
  EXPECT_THAT(swp1.take(), ElementsAre(SentQuery{group}));
  withdraws(swp1, {a});
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, Version2StopsAskingWhenSomebodyReports) {
  settings.version = IgmpVersion::v2;
  start();
  joins(swp1, host);
  leaves(swp1, host);
  swp1.take();
  passes(500ms);
  joins(swp1, otherHost);
  passes(10s);
  EXPECT_THAT(swp1.take(), IsEmpty());
}

TEST_F(VlanQuerierTest, Version1IgnoresLeaves) {
  settings.version = IgmpVersion::v1;
  start();
  joins(swp1, host);
  leaves(swp1, host);
  passes(10s);
  EXPECT_THAT(swp1.take(), IsEmpty());
}

// ---- Queries are answered

TEST_F(VlanQuerierTest, QueriesLowerNobodysTime) {
  start();
  joins(swp1, host);
  joins(swp1, otherHost);
  leaves(swp1, host);
  wheel->advanceTo(policy.groupMembershipInterval() - 1ms);
  batch.publish();
  EXPECT_TRUE(vlan.learning.membership(swp1.intfId(), otherHost, group));
  EXPECT_FALSE(vlan.learning.membership(swp1.intfId(), host, group));
}

// ---- Traces

TEST_F(VlanQuerierTest, EachTransitionIsTracedWithItsCause) {
  auto const traces = TraceCapture::ofEveryLevel("IgmpSnooping::VlanQuerier");
  apply();
  hears(lower);
  hears(lower);
  passes(policy.otherQuerierPresentInterval() + 1s);
  hears(lower);
  settings.source = IpAddr{192, 0, 2, 48};
  apply();
  settings.sendsQueries = false;
  apply();
  EXPECT_THAT(traces.texts(),
              ElementsAre("4 VLAN 10: 192.0.2.50 may be querier: it is switched on",
                          "4 VLAN 10: 192.0.2.49 on swp1 is elected: its query is heard",
                          "4 VLAN 10: 192.0.2.49 is not elected any more: it is heard no longer",
                          "4 VLAN 10: 192.0.2.49 on swp1 is elected: its query is heard",
                          "4 VLAN 10: 192.0.2.49 is not elected any more: 192.0.2.48 precedes it",
                          "4 VLAN 10: 192.0.2.48 is no querier any more: it is switched off"));
}

TEST_F(VlanQuerierTest, RestoredElectionIsTraced) {
  apply();
  auto const traces = TraceCapture::ofEveryLevel("IgmpSnooping::VlanQuerier");
  OtherQuerier elected{lower, {2, 0, 0, 0, 0, 9}, swp1.intfId(), IgmpVersion::v3, 0, {}};
  querier().restore(elected, wheel->now() + 100s);
  EXPECT_THAT(traces.texts(),
              ElementsAre("4 VLAN 10: 192.0.2.49 on swp1 is elected: it was before"));
}

}  // namespace
