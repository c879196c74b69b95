#include <cstddef>
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "framework/entities/LibVlanState.h"
#include "framework/kel/Activity.h"
#include "framework/kel/Trace.h"
#include "framework/types/PortKey.h"
#include "platform/igmp/IgmpHost.h"

KEL_TRACE_MODULE("Test::HotPath", "HotPathTest")

/// What happens for every packet allocates nothing. This program counts its allocations.
namespace {

std::size_t allocations = 0;

}  // namespace

// Not inlined: the compiler could not tell any more that they belong together.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

template <class Work>
std::size_t allocationsOf(Work work) {
  std::size_t const before = allocations;
  work();
  return allocations - before;
}

using Host = Igmp::IgmpHost;

class BlockedReactor : public Host::NotifieeConst {
 public:
  BlockedReactor(Kel::Ptr<Host const> host, int& heard) : heard_(heard) { watch(std::move(host)); }
  BlockedReactor(Kel::Ptr<Kel::ActivityConfig> activity, Kel::Ptr<Host const> host, int& heard)
      : NotifieeConst(Delivery::byActivity), activity_(std::move(activity)), heard_(heard) {
    watch(std::move(host));
  }
  Kel::ActivityConfig* kelFwkActivity() const override { return activity_.get(); }
  void onBlocked() override { ++heard_; }
  void onV3group(Wirex::IpAddr) override { ++heard_; }

 private:
  Kel::Ptr<Kel::ActivityConfig> activity_;
  int& heard_;
};

TEST(HotPathTest, AllocationsAreCounted) {
  EXPECT_EQ(allocationsOf([] { Kel::make<Host>("Vlan10eth1"); }), 2u);  // the host and its name
}

void handleVlan() {
  KEL_TRACE(9, "a message longer than a short string may be");
}

TEST(HotPathTest, DisabledTraceStatementAllocatesNothing) {
  EXPECT_EQ(allocationsOf(handleVlan), 0u);
}

TEST(HotPathTest, LookingAHostUpByItsKeyAllocatesNothing) {
  auto const dir = Kel::make<Igmp::IgmpHostDir>();
  using Bridging::VlanId;
  Bridging::IgmpSnooping::Proxy::PortKey const key(VlanId(10), Wirex::IntfId("eth1"));
  dir->igmpHostIs(key.stringvalue());
  EXPECT_EQ(allocationsOf([&] { EXPECT_TRUE(dir->igmpHost(key.stringvalue())); }), 0u);
}

TEST(HotPathTest, EmptyCollectionsAllocateNothing) {
  Host::V3groups groups;
  EXPECT_EQ(allocationsOf([&] { EXPECT_FALSE(groups.contains(Wirex::IpAddr())); }), 0u);
  EXPECT_EQ(allocationsOf([] { Kel::make<Igmp::IgmpHostDir>(); }), 1u);
}

TEST(HotPathTest, TheOnlyMemberOfACollectionAllocatesNothingButItself) {
  Topology::Library::Vlan::TopoVlan vlan{Bridging::VlanId(10)};
  Wirex::IntfId const first("eth1");
  Wirex::IntfId const second("eth2");
  EXPECT_EQ(allocationsOf([&] { vlan.portIs(first); }), 1u);
  EXPECT_EQ(allocationsOf([&] { vlan.portIs(second); }), 2u);  // and a block for both
}

TEST(HotPathTest, ImmediateNotificationAllocatesNothing) {
  auto const host = Kel::make<Host>("Vlan10eth1");
  int heard = 0;
  auto const first = Kel::make<BlockedReactor>(host, heard);
  EXPECT_EQ(allocationsOf([&] { host->blockedIs(true); }), 0u);
  auto const second = Kel::make<BlockedReactor>(host, heard);
  EXPECT_EQ(allocationsOf([&] { host->blockedIs(false); }), 0u);
  EXPECT_EQ(heard, 3);
}

TEST(HotPathTest, PendingNotificationsReuseTheirPlaces) {
  auto const activity = Kel::make<Kel::ActivityConfig>();
  auto const host = Kel::make<Host>("Vlan10eth1");
  int heard = 0;
  auto const reactor = Kel::make<BlockedReactor>(activity, host, heard);
  auto const round = [&] {
    for (std::uint32_t number = 0; number < 100; ++number)
      host->v3groupNotify(Wirex::IpAddr(number));
    Kel::runActivities();
  };
  round();
  EXPECT_EQ(allocationsOf(round), 0u);
  EXPECT_EQ(heard, 200);
}

TEST(HotPathTest, KeysOfASmallCollectionAreTakenWithoutAllocating) {
  auto const sources = Kel::make<Igmp::IgmpV3HostGroupSourceList>();
  for (std::uint32_t number = 0; number < 16; ++number)
    sources->sourceIpIs(Wirex::IpAddr(number), 1);
  EXPECT_EQ(allocationsOf([&] { EXPECT_EQ(sources->sourceIp().keys().size(), 16u); }), 0u);
}

TEST(HotPathTest, CopiedTextsAllocateNothing) {
  Wirex::IntfId const intf("eth1");
  EXPECT_EQ(allocationsOf([&] { EXPECT_EQ(Wirex::IntfId(intf), intf); }), 0u);
}

}  // namespace
