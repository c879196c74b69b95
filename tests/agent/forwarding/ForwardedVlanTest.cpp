#include "agent/forwarding/ForwardedVlan.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/config/ConfigurationTesting.h"

namespace Agent {
namespace {

using namespace Bridging::IgmpSnooping;
using Bridging::VlanId;
using Gmp::Igmp::IgmpFilterMode;
using testing::ElementsAre;
using testing::IsEmpty;
using Wirex::IntfId;
using Wirex::IpAddr;

SourceFilter includes(std::vector<IpAddr> sources) {
  return {IgmpFilterMode::include, std::move(sources)};
}

SourceFilter excludes(std::vector<IpAddr> sources) {
  return {IgmpFilterMode::exclude, std::move(sources)};
}

class Memberships {
 public:
  Memberships& add(char const* intf, IpAddr reporter, SourceFilter const& filter) {
    auto const membership = group_->intfIs(IntfId(intf))->membershipIs(reporter);
    membership->filterModeIs(filter.mode);
    for (IpAddr const source : filter.sources) membership->sourceIs(source);
    return *this;
  }
  SourceFilter of(char const* intf) const { return wantedBy(*group_->intf(IntfId(intf))); }
  operator IgmpGroup const&() const { return *group_; }

 private:
  Kel::Ptr<IgmpGroup> group_ = Kel::make<IgmpGroup>(group);
};

std::vector<std::string> names(std::set<IntfId> const& ports) {
  std::vector<std::string> result;
  for (IntfId const& port : ports) result.emplace_back(port.stringValue().view());
  return result;
}

// ---- What a port wants

TEST(WantedBy, ReportersWhoIncludeWantTheirSourcesTogether) {
  EXPECT_EQ(
      Memberships().add("swp1", tv, includes({a})).add("swp1", desk, includes({b})).of("swp1"),
      includes({a, b}));
}

TEST(WantedBy, WhatAllExcludeIsExcluded) {
  EXPECT_EQ(Memberships()
                .add("swp1", tv, excludes({a, b}))
                .add("swp1", desk, excludes({b, c}))
                .of("swp1"),
            excludes({b}));
}

TEST(WantedBy, WhatAnotherIncludesIsNotExcluded) {
  EXPECT_EQ(
      Memberships().add("swp1", tv, excludes({a, b})).add("swp1", desk, includes({a})).of("swp1"),
      excludes({b}));
  EXPECT_EQ(
      Memberships().add("swp1", tv, includes({a})).add("swp1", desk, excludes({a, b})).of("swp1"),
      excludes({b}));
}

// ---- What it gets

constexpr char const* oneVlan = R"([[interface]]
name = "swp[1-3]"
[[vlan]]
id = 10
interfaces = ["swp[1-3]"]
)";

TEST(WantedEntry, ListenerGetsWhatItWants) {
  auto const vlan = forwardedVlans(configurationIn(oneVlan), true).at(0);
  Memberships const memberships = Memberships().add("swp1", tv, includes({a}));
  EXPECT_EQ(wantedEntry(vlan, memberships, IntfId("swp1"), false), includes({a}));
  EXPECT_EQ(wantedEntry(vlan, memberships, IntfId("swp2"), false), std::nullopt);
}

TEST(WantedEntry, RouterPortGetsEverySource) {
  auto const vlan = forwardedVlans(configurationIn(oneVlan), true).at(0);
  Memberships const memberships = Memberships().add("swp1", tv, includes({a}));
  EXPECT_EQ(wantedEntry(vlan, memberships, IntfId("swp1"), true), excludes({}));
  EXPECT_EQ(wantedEntry(vlan, memberships, IntfId("swp3"), true), excludes({}));
}

TEST(WantedEntry, WithdrawnMembershipGetsNothing) {
  auto const vlan = forwardedVlans(configurationIn(oneVlan), true).at(0);
  EXPECT_EQ(wantedEntry(vlan, Memberships().add("swp1", tv, includes({})), IntfId("swp1"), false),
            std::nullopt);
}

TEST(WantedEntry, PortThatLetsNothingOutGetsNothing) {
  for (char const* const setting :
       {"direction = \"ingress\"", "direction = \"none\"", "blocked = true"}) {
    auto const vlan =
        forwardedVlans(configurationIn(std::string("[[interface]]\nname = \"swp1\"\n") + setting +
                                       "\n[[vlan]]\nid = 10\ninterfaces = [\"swp1\"]"),
                       true)
            .at(0);
    Memberships const memberships = Memberships().add("swp1", tv, excludes({}));
    EXPECT_EQ(wantedEntry(vlan, memberships, IntfId("swp1"), false), std::nullopt) << setting;
    EXPECT_EQ(wantedEntry(vlan, memberships, IntfId("swp1"), true), std::nullopt) << setting;
  }
}

// ---- VLANs

TEST(ForwardedVlans, BridgeThatDoesNotTellThemApartHasEntriesInNone) {
  EXPECT_EQ(forwardedVlans(configurationIn(oneVlan), true).at(0).entryVlan, 10);
  EXPECT_EQ(forwardedVlans(configurationIn(oneVlan), false).at(0).entryVlan, 0);
}

constexpr char const* privateVlans = R"([[interface]]
name = "swp[1-4]"
[[vlan]]
id = 10
interfaces = ["swp1"]
[[vlan]]
id = 20
interfaces = ["swp2"]
private = { type = "isolated", primary = 10 }
[[vlan]]
id = 30
interfaces = ["swp[3-4]"]
private = { type = "community", primary = 10 }
)";

TEST(ForwardedVlans, PrimaryReachesAllItsSecondaries) {
  auto const vlan = forwardedVlans(configurationIn(privateVlans), true).at(0);
  EXPECT_EQ(vlan.learnedIn, VlanId(10));
  EXPECT_THAT(names(vlan.receivers), ElementsAre("swp1", "swp2", "swp3", "swp4"));
  EXPECT_THAT(vlan.routersOf, ElementsAre(VlanId(10), VlanId(20), VlanId(30)));
}

TEST(ForwardedVlans, IsolatedReachesThePromiscuousPortsAlone) {
  auto const vlan = forwardedVlans(configurationIn(privateVlans), true).at(1);
  EXPECT_EQ(vlan.entryVlan, 20);
  EXPECT_EQ(vlan.learnedIn, VlanId(10));
  EXPECT_THAT(names(vlan.receivers), ElementsAre("swp1"));
  EXPECT_THAT(vlan.routersOf, ElementsAre(VlanId(10)));
}

TEST(ForwardedVlans, CommunityReachesItselfAndThePromiscuousPorts) {
  auto const vlan = forwardedVlans(configurationIn(privateVlans), true).at(2);
  EXPECT_THAT(names(vlan.receivers), ElementsAre("swp1", "swp3", "swp4"));
  EXPECT_THAT(vlan.routersOf, ElementsAre(VlanId(30), VlanId(10)));
}

}  // namespace
}  // namespace Agent
