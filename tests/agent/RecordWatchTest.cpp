#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/text/Wording.h"
#include "agent/watch/RecordWatch.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/FilterText.h"

namespace Agent {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Wirex::IgmpV3GroupRecordType;
using Wirex::IpAddr;

constexpr auto include = IgmpV3GroupRecordType::modeIsInclude;
constexpr auto exclude = IgmpV3GroupRecordType::modeIsExclude;

class RecordWatchTest : public testing::Test {
 protected:
  /// Writes a record as the proxy does: its list anew, source by source.
  void write(Kel::Ptr<Igmp::IgmpHost> const& to, IgmpV3GroupRecordType mode,
             std::vector<IpAddr> const& sources, IpAddr address = group) {
    auto const record = to->v3groupIs(address);
    auto const list = record->sourceIs();
    record->filterModeIs(mode);
    list->sourceIpDelAll();
    for (IpAddr const source : sources) list->sourceIpIs(source, 1);
  }

  std::vector<std::string> changes() {
    std::vector<std::string> texts;
    for (RecordChange const& change : watch.takeChanges())
      texts.push_back(message(change.host, ' ', change.group, ": ", filterText(change.before),
                              " -> ", filterText(change.after)));
    return texts;
  }

  Kel::Ptr<Igmp::IgmpHostDir> hosts = Kel::make<Igmp::IgmpHostDir>();
  Kel::Ptr<Igmp::IgmpHost> host = hosts->igmpHostIs("Vlan10swp1");
  RecordWatch watch{hosts};
};

TEST_F(RecordWatchTest, NewRecordIsTold) {
  write(host, include, {b, a});
  EXPECT_THAT(changes(), ElementsAre("Vlan10swp1 239.1.1.1: none -> include 192.0.2.1 192.0.2.2"));
  EXPECT_THAT(changes(), IsEmpty()) << "once";
}

TEST_F(RecordWatchTest, OnlyWhatIsSelectedIsWatched) {
  using Bridging::VlanId;
  using Wirex::IntfId;
  auto const otherPort = hosts->igmpHostIs("Vlan10swp2");
  auto const otherVlan = hosts->igmpHostIs("Vlan20swp1");
  write(otherPort, include, {a});
  RecordWatch ofOne(hosts, {VlanId(10), IntfId("swp1"), group});
  EXPECT_FALSE(ofOne.watchSome(100));
  for (auto const& each : {host, otherPort, otherVlan})
    for (IpAddr const address : {group, otherGroup}) write(each, exclude, {}, address);
  write(hosts->igmpHostIs("Vlan30swp1"), exclude, {});
  auto const heard = ofOne.takeChanges();
  ASSERT_EQ(heard.size(), 1u);
  EXPECT_EQ(message(heard[0].host, ' ', heard[0].group), "Vlan10swp1 239.1.1.1");
  hosts->igmpHostDel("Vlan10swp2");
  EXPECT_THAT(ofOne.takeChanges(), IsEmpty());
  hosts->igmpHostDel("Vlan10swp1");
  EXPECT_EQ(ofOne.takeChanges().size(), 1u);
}

TEST_F(RecordWatchTest, ChangeIsToldAsOneFromSettledToSettled) {
  write(host, include, {a});
  changes();
  write(host, include, {b});
  write(host, exclude, {a, b});
  EXPECT_THAT(
      changes(),
      ElementsAre("Vlan10swp1 239.1.1.1: include 192.0.2.1 -> exclude 192.0.2.1 192.0.2.2"));
}

TEST_F(RecordWatchTest, RecordWrittenAnewAsItWasHasNotChanged) {
  write(host, include, {a, b});
  changes();
  write(host, include, {b, a});
  EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(RecordWatchTest, RemovedRecordIsTold) {
  write(host, exclude, {});
  changes();
  host->v3groupDel(group);
  EXPECT_THAT(changes(), ElementsAre("Vlan10swp1 239.1.1.1: exclude -> none"));
}

TEST_F(RecordWatchTest, RecordThatCameAndWentWasNeverThere) {
  write(host, include, {a});
  host->v3groupDel(group);
  EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(RecordWatchTest, RecordThatWentAndCameBackIsCompared) {
  write(host, include, {a});
  write(host, include, {a}, otherGroup);
  changes();
  host->v3groupDelAll();
  write(host, include, {a});
  write(host, include, {b}, otherGroup);
  EXPECT_THAT(changes(),
              ElementsAre("Vlan10swp1 239.2.2.2: include 192.0.2.1 -> include 192.0.2.2"));
  write(host, exclude, {});
  EXPECT_THAT(changes(), ElementsAre("Vlan10swp1 239.1.1.1: include 192.0.2.1 -> exclude"))
      << "the new object is watched";
}

TEST_F(RecordWatchTest, RecordWithoutASourceListIsOneWithoutSources) {
  host->v3groupIs(group)->filterModeIs(exclude);
  EXPECT_THAT(changes(), ElementsAre("Vlan10swp1 239.1.1.1: none -> exclude"));
  host->v3group(group)->sourceIs();
  EXPECT_THAT(changes(), IsEmpty());
  host->v3group(group)->source()->sourceIpIs(a, 1);
  EXPECT_THAT(changes(), ElementsAre("Vlan10swp1 239.1.1.1: exclude -> exclude 192.0.2.1"));
  host->v3group(group)->sourceDel();
  EXPECT_THAT(changes(), ElementsAre("Vlan10swp1 239.1.1.1: exclude 192.0.2.1 -> exclude"));
}

TEST_F(RecordWatchTest, RecordsThatAreThereAtTheBeginningAreNotNew) {
  write(host, include, {a});
  RecordWatch later(hosts);
  EXPECT_FALSE(later.watchSome(2));
  EXPECT_THAT(later.takeChanges(), IsEmpty());
  write(host, include, {b});
  auto const changed = later.takeChanges();
  ASSERT_EQ(changed.size(), 1u);
  EXPECT_EQ(filterText(changed[0].before), "include 192.0.2.1");
  EXPECT_EQ(filterText(changed[0].after), "include 192.0.2.2");
}

TEST_F(RecordWatchTest, RecordsAreTakenUpAFewAtATimeWhileTheyComeAndGo) {
  auto const address = [](int i) { return IpAddr(239, 1, 1, static_cast<std::uint8_t>(i)); };
  auto const other = hosts->igmpHostIs("Vlan10swp2");
  for (int i = 0; i < 10; ++i) {
    write(host, include, {a}, address(i));
    write(other, include, {a}, address(i));
  }
  RecordWatch later(hosts);
  EXPECT_TRUE(later.watchSome(3));
  host->v3groupDel(address(0));  // the last one takes its place
  host->v3groupDel(address(9));
  write(host, include, {a}, address(10));
  EXPECT_TRUE(later.watchSome(3));
  EXPECT_FALSE(later.watchSome(100));

  EXPECT_THAT(later.takeChanges(), IsEmpty()) << "all of it is the first settled state";
  for (int i = 0; i < 11; ++i) {
    write(host, include, {b}, address(i));
    write(other, include, {b}, address(i));
  }
  std::size_t added = 0;
  for (RecordChange const& change : later.takeChanges()) added += change.before ? 0u : 1u;
  EXPECT_EQ(added, 3u) << "two that had gone, and one that the other host did not have";
}

TEST_F(RecordWatchTest, RecordsAreGivenUpAFewAtATimeAndTouchNothing) {
  write(host, include, {a});
  write(host, include, {a}, otherGroup);
  EXPECT_EQ(changes().size(), 2u);
  write(host, include, {b});
  EXPECT_TRUE(watch.unwatchSome(1));
  write(host, include, {a});
  write(host, include, {a}, otherGroup);
  write(host, include, {a}, IpAddr(239, 3, 3, 3));
  EXPECT_FALSE(watch.unwatchSome(1)) << "what is new is not followed any more";
}

TEST_F(RecordWatchTest, HostsThatComeAndGoTakeTheirRecordsAlong) {
  auto const newHost = hosts->igmpHostIs("Vlan10swp2");
  write(newHost, include, {a});
  EXPECT_THAT(changes(), ElementsAre("Vlan10swp2 239.1.1.1: none -> include 192.0.2.1"));
  hosts->igmpHostDel("Vlan10swp2");
  EXPECT_THAT(changes(), ElementsAre("Vlan10swp2 239.1.1.1: include 192.0.2.1 -> none"));
  write(newHost, include, {b});
  EXPECT_THAT(changes(), IsEmpty()) << "no host of the directory any more";
}

TEST_F(RecordWatchTest, HostThatComesBackIsCompared) {
  write(host, include, {a});
  write(host, include, {a}, otherGroup);
  changes();
  hosts->igmpHostDel("Vlan10swp1");
  auto const again = hosts->igmpHostIs("Vlan10swp1");
  write(again, include, {a});
  EXPECT_THAT(changes(), ElementsAre("Vlan10swp1 239.2.2.2: include 192.0.2.1 -> none"));
  write(again, include, {b});
  EXPECT_THAT(changes(),
              ElementsAre("Vlan10swp1 239.1.1.1: include 192.0.2.1 -> include 192.0.2.2"));
}

TEST_F(RecordWatchTest, ChangesAreSortedByVlanInterfaceAndGroup) {
  for (char const* const name : {"Vlan100swp1", "Vlan20swp10", "Vlan20swp9"}) {
    auto const each = hosts->igmpHostIs(name);
    write(each, exclude, {}, otherGroup);
    write(each, exclude, {});
  }
  EXPECT_THAT(changes(), ElementsAre("Vlan20swp9 239.1.1.1: none -> exclude",
                                     "Vlan20swp9 239.2.2.2: none -> exclude",
                                     "Vlan20swp10 239.1.1.1: none -> exclude",
                                     "Vlan20swp10 239.2.2.2: none -> exclude",
                                     "Vlan100swp1 239.1.1.1: none -> exclude",
                                     "Vlan100swp1 239.2.2.2: none -> exclude"));
}

TEST(RecordWatch, MayEndBeforeAndAfterItsHosts) {
  auto hosts = Kel::make<Igmp::IgmpHostDir>();
  auto host = hosts->igmpHostIs("Vlan10swp1");
  {
    RecordWatch const shortLived(hosts);
    host->v3groupIs(group)->sourceIs()->sourceIpIs(a, 1);
  }
  host->v3group(group)->source()->sourceIpIs(b, 1);

  RecordWatch longLived(hosts);
  longLived.watchSome(1);
  host->v3groupDel(group);
  host = nullptr;
  hosts = nullptr;
  EXPECT_EQ(longLived.takeChanges().size(), 1u);
}

}  // namespace
}  // namespace Agent
