#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "framework/entities/MembershipWriter.h"
#include "tests/proxy/SnoopedVlan.h"

/// Memberships that are written through the writer reach the hosts' records as they are.
namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

class MembershipWriterTest : public SnoopedVlan {
 protected:
  MembershipWriterTest() { proxyOn("swp9"); }

  void says(char const* port, IpAddr reporter, FilterMode mode,
            std::vector<IpAddr> const& sources) {
    writer.membershipIs(g1, IntfId(port), reporter, mode, sources);
  }
  void include(char const* port, IpAddr reporter, std::vector<IpAddr> const& sources) {
    says(port, reporter, FilterMode::include, sources);
    writer.publish();
  }
  void exclude(char const* port, IpAddr reporter, std::vector<IpAddr> const& sources) {
    says(port, reporter, FilterMode::exclude, sources);
    writer.publish();
  }
  void leaves(char const* port, IpAddr reporter) {
    writer.membershipDel(g1, IntfId(port), reporter);
    writer.publish();
  }

  MembershipWriter writer{status};
};

TEST_F(MembershipWriterTest, NewReporterIncludesItsSourcesFromTheBeginning) {
  include("swp1", r1, {s1, s2});
  EXPECT_EQ(record("swp9"), including({s1, s2}));
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}, {s2, 1}}, {}}));
}

TEST_F(MembershipWriterTest, WhoLeavesTakesEverythingBackAndGoes) {
  include("swp1", r1, {s1});
  exclude("swp2", r1, {s1});
  leaves("swp2", r1);
  EXPECT_EQ(record("swp9"), including({s1}));
  leaves("swp1", r1);
  EXPECT_EQ(record("swp9"), nothing);
  EXPECT_TRUE(status->group().empty());
}

TEST_F(MembershipWriterTest, WhoComesAndLeavesInOneBatchWasNeverThere) {
  exclude("swp1", r1, {s1});
  says("swp1", r2, FilterMode::exclude, {});
  writer.membershipDel(g1, IntfId("swp1"), r2);
  says("swp2", r2, FilterMode::include, {});
  writer.publish();
  EXPECT_EQ(record("swp9"), excluding({s1}));
  EXPECT_EQ(status->group(g1)->intf().size(), 1u);
}

TEST_F(MembershipWriterTest, WhoStaysIsReadAgain) {
  exclude("swp1", r1, {s1});
  exclude("swp1", r2, {});
  EXPECT_EQ(record("swp9"), everything);
  leaves("swp1", r2);
  EXPECT_EQ(record("swp9"), excluding({s1}));
}

TEST_F(MembershipWriterTest, PortKeepsWhatItExcludesWhileAnotherOneMixesModes) {
  exclude("swp1", r1, {s1, s2});
  include("swp2", r1, {s1});
  exclude("swp2", r2, {});
  include("swp2", r1, {s1, s3});
  leaves("swp2", r2);
  leaves("swp2", r1);
  EXPECT_EQ(record("swp9"), excluding({s1, s2}));
}

/// The sources of a membership that its readers heard of.
class HeardSources final : public IgmpMembership::NotifieeConst {
 public:
  explicit HeardSources(Kel::Ptr<IgmpMembership const> membership) { watch(std::move(membership)); }
  void onSource(IpAddr source) override { heard.insert(source); }

  std::set<IpAddr> heard;
};

TEST_F(MembershipWriterTest, OnlyWhatAMixedPortIncludesIsSaidAgain) {
  exclude("swp1", r1, {s1, s2});
  exclude("swp2", r2, {});
  auto const heard =
      Kel::make<HeardSources>(status->group(g1)->intf(IntfId("swp1"))->membership(r1));
  include("swp2", r1, {s2, s3});
  EXPECT_EQ(heard->heard, std::set<IpAddr>{s2});
  EXPECT_EQ(counts(), (Counts{1, {}, {{s1, 1}, {s2, 1}}}));
}

TEST_F(MembershipWriterTest, NothingIsSaidAgainWhileTheMixedPortStaysAsItIs) {
  exclude("swp1", r1, {s1});
  exclude("swp2", r2, {});
  include("swp2", r1, {s1});
  auto const heard =
      Kel::make<HeardSources>(status->group(g1)->intf(IntfId("swp1"))->membership(r1));
  exclude("swp3", r1, {s1, s2});
  EXPECT_TRUE(heard->heard.empty());
  EXPECT_EQ(counts(), (Counts{1, {}, {{s1, 2}, {s2, 1}}}));
}

TEST_F(MembershipWriterTest, PortKeepsWhatItExcludesBesideACrowdThatIncludesIt) {
  exclude("swp1", r1, {s1, s2});
  exclude("swp2", r2, {});
  for (std::uint32_t i = 0; i < 40; ++i)
    says("swp2", IpAddr(r3.value() + i), FilterMode::include, {i == 39 ? s1 : s3});
  writer.publish();
  EXPECT_EQ(counts(), (Counts{1, {}, {{s1, 1}, {s2, 1}}}));
}

TEST_F(MembershipWriterTest, RepeatingLosesNoCounts) {
  exclude("swp1", r1, {s1});
  include("swp2", r1, {s1});
  exclude("swp2", r2, {s2});
  writer.repeat();
  writer.publish();
  EXPECT_EQ(counts(), (Counts{1, {}, {{s1, 1}}}));
}

TEST_F(MembershipWriterTest, RepeatingWhatIsTakenBackBeforeItIsPublishedLosesNoCounts) {
  exclude("swp1", r1, {s1});
  include("swp2", r1, {s1});
  include("swp2", r2, {s1});
  says("swp2", r2, FilterMode::exclude, {s1});
  writer.repeat();
  writer.membershipDel(g1, IntfId("swp2"), r1);
  writer.membershipDel(g1, IntfId("swp2"), r2);
  writer.publish();
  EXPECT_EQ(counts(), (Counts{0, {}, {{s1, 1}}}));
}

/// What ports of these reporters count together, computed anew.
Counts freshCounts(IgmpGroup const& group) {
  Counts fresh;
  for (auto const& [name, intf] : group.intf()) {
    Sources included;
    CountBySource excluded;
    bool excludes = false;
    for (auto const& [reporter, membership] : intf->membership()) {
      excludes |= membership->filterMode() == FilterMode::exclude;
      for (IpAddr const source : membership->source())
        membership->filterMode() == FilterMode::exclude
            ? static_cast<void>(++excluded[source])
            : static_cast<void>(included.insert(source));
    }
    std::uint32_t const reporters = intf->membership().size();
    std::erase_if(excluded, [&](auto const& entry) { return entry.second != reporters; });
    if (!excludes)
      for (IpAddr const source : included) ++fresh.include[source];
    for (auto const& [source, count] : excluded) ++fresh.exclude[source];
    fresh.starG = static_cast<SourceCount::Count>(fresh.starG + (excludes && excluded.empty()));
  }
  return fresh;
}

TEST_F(MembershipWriterTest, CountsEqualAFreshMergeWhateverTheMixOfModes) {
  constexpr char const* ports[] = {"swp1", "swp2", "swp3"};
  constexpr IpAddr reporters[] = {r1, r2, r3};
  constexpr IpAddr sources[] = {s1, s2, s3};
  std::mt19937 random(1);
  auto const below = [&](unsigned limit) { return static_cast<std::size_t>(random() % limit); };
  for (int step = 0; step < 5000; ++step) {
    for (std::size_t writes = below(3) + 1; writes > 0; --writes) {
      std::vector<IpAddr> chosen;
      for (IpAddr const source : sources)
        if (below(2) == 0) chosen.push_back(source);
      says(ports[below(3)], reporters[below(3)],
           below(2) == 0 ? FilterMode::include : FilterMode::exclude, chosen);
    }
    writer.publish();
    if (auto const present = status->group(g1)) {
      ASSERT_EQ(counts(), freshCounts(*present)) << "step " << step;
    }
  }
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
