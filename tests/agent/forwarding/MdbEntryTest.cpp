#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <linux/if_bridge.h>
#include <linux/if_ether.h>
#include <linux/rtnetlink.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/forwarding/MdbEntry.h"
#include "tests/agent/Addresses.h"

namespace Agent {
namespace {

using Gmp::Igmp::IgmpFilterMode;
using testing::ElementsAre;
using Wirex::IpAddr;

SourceFilter const everySource{IgmpFilterMode::exclude, {}};

std::vector<IpAddr> manySources(std::uint32_t count) {
  std::vector<IpAddr> sources;
  for (std::uint32_t i = 1; i <= count; ++i) sources.emplace_back(0xc0000200 + i);
  return sources;
}

std::size_t requests(std::optional<SourceFilter> const& before,
                     std::optional<SourceFilter> const& after, EntryKind kind) {
  NetlinkBatch batch;
  addChange(batch, {1, 2, 10, group}, before, after, kind);
  return batch.count();
}

TEST(KernelEntries, OneEntryHoldsModeAndSourcesWhereTheKernelCan) {
  SourceFilter const filter{IgmpFilterMode::include, {a, b}};
  EXPECT_THAT(kernelEntries(filter, EntryKind::sourceLists),
              ElementsAre(KernelEntry{IpAddr(), filter}));
  SourceFilter const blocking{IgmpFilterMode::exclude, {a}};
  EXPECT_THAT(kernelEntries(blocking, EntryKind::sourceLists),
              ElementsAre(KernelEntry{IpAddr(), blocking}));
}

TEST(KernelEntries, OlderKernelsTakeOneForEachSource) {
  EXPECT_THAT(kernelEntries({IgmpFilterMode::include, {a, b}}, EntryKind::singleSources),
              ElementsAre(KernelEntry{a, everySource}, KernelEntry{b, everySource}));
}

TEST(KernelEntries, OlderKernelsLetExcludedSourcesThrough) {
  EXPECT_THAT(kernelEntries({IgmpFilterMode::exclude, {a}}, EntryKind::singleSources),
              ElementsAre(KernelEntry{IpAddr(), everySource}));
}

TEST(KernelEntries, MoreSourcesThanAListHoldsBecomeSingleOnes) {
  auto const kind = EntryKind::sourceLists;
  EXPECT_EQ(kernelEntries({IgmpFilterMode::include, manySources(32)}, kind).size(), 1);
  EXPECT_EQ(kernelEntries({IgmpFilterMode::include, manySources(33)}, kind).size(), 33);
  EXPECT_THAT(kernelEntries({IgmpFilterMode::exclude, manySources(33)}, kind),
              ElementsAre(KernelEntry{IpAddr(), everySource}));
}

TEST(KernelEntries, MoreSingleSourcesThanCanBeWrittenAreAllLetThrough) {
  EXPECT_THAT(kernelEntries({IgmpFilterMode::include, manySources(1025)}, EntryKind::sourceLists),
              ElementsAre(KernelEntry{IpAddr(), everySource}));
}

TEST(EntryChange, WritesOnlyWhatDiffers) {
  SourceFilter const ab{IgmpFilterMode::include, {a, b}};
  SourceFilter const bc{IgmpFilterMode::include, {b, c}};
  EXPECT_EQ(requests(ab, ab, EntryKind::sourceLists), 0);
  EXPECT_EQ(requests(ab, bc, EntryKind::sourceLists), 1);
  EXPECT_EQ(requests(ab, bc, EntryKind::singleSources), 2);
  EXPECT_EQ(requests(ab, std::nullopt, EntryKind::singleSources), 2);
  EXPECT_EQ(requests(std::nullopt, everySource, EntryKind::singleSources), 1);
  EXPECT_EQ(requests(everySource, ab, EntryKind::singleSources), 3);
}

TEST(EntryChange, TakesAnyNumberOfRequests) {
  EXPECT_EQ(requests(std::nullopt, SourceFilter{IgmpFilterMode::include, manySources(1024)},
                     EntryKind::singleSources),
            1024);
}

TEST(EntryChange, WritesAgainWhatIsNotTrustedToBeThere) {
  NetlinkBatch batch;
  SourceFilter const ab{IgmpFilterMode::include, {a, b}};
  addChange(batch, {1, 2, 10, group}, ab, ab, EntryKind::singleSources, Trust::none);
  EXPECT_EQ(batch.count(), 2);
}

/// What the requests of a batch say of their entries, with the type of each.
std::vector<std::pair<int, br_mdb_entry>> entriesIn(NetlinkBatch const& batch) {
  std::vector<std::pair<int, br_mdb_entry>> entries;
  auto const requests = batch.requests();
  auto left = static_cast<int>(requests.size());
  for (auto const* header = reinterpret_cast<nlmsghdr const*>(requests.data());
       mnl_nlmsg_ok(header, left); header = mnl_nlmsg_next(header, &left))
    eachAttributeBehind(*header, sizeof(br_port_msg), [&](nlattr const& attribute) {
      if (mnl_attr_get_type(&attribute) != MDBA_SET_ENTRY) return;
      br_mdb_entry entry{};
      std::memcpy(&entry, mnl_attr_get_payload(&attribute), sizeof entry);
      entries.emplace_back(header->nlmsg_type, entry);
    });
  return entries;
}

TEST(EntryChange, IsWrittenInTheVlanOfTheEntry) {
  NetlinkBatch batch;
  addChange(batch, {1, 2, 10, group}, std::nullopt, everySource, EntryKind::sourceLists);
  addChange(batch, {1, 2, 20, group}, everySource, std::nullopt, EntryKind::sourceLists);
  auto const entries = entriesIn(batch);
  ASSERT_EQ(entries.size(), 2);
  EXPECT_EQ(entries[0].first, RTM_NEWMDB);
  EXPECT_EQ(entries[0].second.vid, 10);
  EXPECT_EQ(entries[0].second.ifindex, 2);
  EXPECT_EQ(entries[0].second.state, MDB_PERMANENT);
  EXPECT_EQ(ntohl(entries[0].second.addr.u.ip4), group.value());
  EXPECT_EQ(entries[1].first, RTM_DELMDB);
  EXPECT_EQ(entries[1].second.vid, 20);
}

/// The news that the kernel has of an entry in a VLAN.
std::vector<FoundEntry> toldOf(std::uint16_t type, std::uint16_t vlan, std::uint8_t protocol) {
  alignas(nlmsghdr) std::array<char, 512> buffer{};
  nlmsghdr& header = *mnl_nlmsg_put_header(buffer.data());
  header.nlmsg_type = type;
  static_cast<br_port_msg*>(mnl_nlmsg_put_extra_header(&header, sizeof(br_port_msg)))->ifindex = 7;
  nlattr* const mdb = mnl_attr_nest_start(&header, MDBA_MDB);
  nlattr* const listed = mnl_attr_nest_start(&header, MDBA_MDB_ENTRY);
  nlattr* const info = mnl_attr_nest_start(&header, MDBA_MDB_ENTRY_INFO);
  br_mdb_entry entry{};
  entry.ifindex = 3;
  entry.state = MDB_PERMANENT;
  entry.vid = vlan;
  entry.addr.u.ip4 = htonl(group.value());
  entry.addr.proto = htons(ETH_P_IP);
  // The entry stands before the attributes, without a header of its own.
  std::memcpy(mnl_nlmsg_get_payload_tail(&header), &entry, sizeof entry);
  header.nlmsg_len += MNL_ALIGN(sizeof entry);
  mnl_attr_put_u8(&header, MDBA_MDB_EATTR_RTPROT, protocol);
  mnl_attr_nest_end(&header, info);
  mnl_attr_nest_end(&header, listed);
  mnl_attr_nest_end(&header, mdb);
  std::vector<FoundEntry> found;
  readEntries(header, found);
  return found;
}

TEST(FoundEntries, AreInTheirVlan) {
  auto const found = toldOf(RTM_NEWMDB, 10, 143);
  ASSERT_EQ(found.size(), 1);
  EXPECT_EQ(found[0].place.bridge, 7);
  EXPECT_EQ(found[0].place.port, 3);
  EXPECT_EQ(found[0].place.vlan, 10);
  EXPECT_EQ(found[0].place.group, group);
  EXPECT_TRUE(found[0].permanent);
  EXPECT_TRUE(found[0].ours);
}

TEST(FoundEntries, AreToldOfWhenTheyGo) {
  auto const found = toldOf(RTM_DELMDB, 20, 143);
  ASSERT_EQ(found.size(), 1);
  EXPECT_EQ(found[0].place.vlan, 20);
}

TEST(FoundEntries, OfOtherProgramsAreNotOurs) {
  auto const found = toldOf(RTM_NEWMDB, 10, 4);
  ASSERT_EQ(found.size(), 1);
  EXPECT_FALSE(found[0].ours);
}

}  // namespace
}  // namespace Agent
