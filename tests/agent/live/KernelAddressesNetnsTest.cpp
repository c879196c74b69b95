#include <memory>
#include <optional>

#include <gtest/gtest.h>

#include "agent/live/KernelAddresses.h"
#include "tests/platform/interface/VethCable.h"

namespace Agent {
namespace {

using namespace InterfaceTest;
using namespace std::chrono_literals;
using Wirex::IpAddr;

/// Follows the addresses of a namespace of its own, in which swp1 is a port of br0.
class KernelAddressesNetnsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (auto const impossible = VethCable::impossible()) GTEST_SKIP() << *impossible;
    space.emplace();
    ip(*space, "link add br0 type bridge");
    ip(*space, "link add swp1 type veth peer name far1");
    ip(*space, "link set swp1 master br0");
  }
  void follow() {
    NetworkNamespace::Inside const inside(*space);
    addresses.emplace(loop, [this](AddressBook const& book) {
      ++told;
      found = book.addressFor(Bridging::VlanId(10), Wirex::IntfId("swp1"));
    });
  }
  void finds(IpAddr address) {
    for (auto const end = loop.now() + 5s; found != address && loop.now() < end;)
      loop.turn(loop.now() + 10ms);
    EXPECT_EQ(found, address);
  }

  std::optional<NetworkNamespace> space;
  Horix::EventLoop loop{Kel::make<Horix::TimerWheel>(Kel::make<Horix::MonotonicClock>())};
  IpAddr found;
  int told = 0;
  std::optional<KernelAddresses> addresses;
};

TEST_F(KernelAddressesNetnsTest, AddressesThatThereAreAreToldBeforeAnythingElse) {
  ip(*space, "address add 192.0.2.1/24 dev br0");
  ip(*space, "address add 127.0.0.5/8 dev swp1");
  follow();
  EXPECT_EQ(found, IpAddr(192, 0, 2, 1));
  EXPECT_EQ(told, 1);
}

TEST_F(KernelAddressesNetnsTest, AddressesAndBridgesAreFollowedAsTheyChange) {
  follow();
  EXPECT_EQ(found, IpAddr());
  ip(*space, "address add 192.0.2.1/24 dev br0");
  finds(IpAddr(192, 0, 2, 1));
  ip(*space, "link set swp1 nomaster");
  finds(IpAddr());
  ip(*space, "link set swp1 master br0");
  finds(IpAddr(192, 0, 2, 1));
  ip(*space, "address add 192.0.2.2/24 dev swp1");
  finds(IpAddr(192, 0, 2, 2));
  ip(*space, "address del 192.0.2.2/24 dev swp1");
  finds(IpAddr(192, 0, 2, 1));
  ip(*space, "link del swp1");
  finds(IpAddr());
}

TEST_F(KernelAddressesNetnsTest, DeviceOfTheVlanComesFirst) {
  ip(*space, "address add 192.0.2.1/24 dev br0");
  try {
    ip(*space, "link add link br0 name br0.10 type vlan id 10");
  } catch (std::exception const&) {
    GTEST_SKIP() << "this kernel makes no VLAN devices";
  }
  ip(*space, "address add 192.0.2.10/24 dev br0.10");
  follow();
  EXPECT_EQ(found, IpAddr(192, 0, 2, 10));
}

}  // namespace
}  // namespace Agent
