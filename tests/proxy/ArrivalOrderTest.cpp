#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/proxy/ProxiedSwitch.h"

/// The inputs that make a port served may come and go in any order. What the proxy makes of them
/// is written down here as a rule of what is there, and of the order where that matters, and held
/// against the proxy after each step of every order.
namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

/// Something that comes to the switch, or goes again.
struct Input {
  char const* name;
  void (*arrives)(ProxiedSwitch&);
  void (*leaves)(ProxiedSwitch&);
};

/// Where each input, by its place in the list of inputs, stands in an order of them.
using Places = std::vector<std::size_t>;

std::string told(std::vector<Input> const& inputs, Places const& order) {
  std::string text;
  for (std::size_t const input : order)
    text += (text.empty() ? "" : ", ") + std::string(inputs[input].name);
  return text;
}

// ---- a port of a normal VLAN

enum Single { starts, configured, querier10, member, inKernel, desiredPort };

std::vector<Input> const ofOnePort{
    {"start", [](auto& on) { on.start(); }, [](auto& on) { on.stop(); }},
    {"proxy 10", [](auto& on) { on.proxies(10); }, [](auto& on) { on.forgets(10); }},
    {"querier 10", [](auto& on) { on.querierIs(10); }, [](auto& on) { on.querierDel(10); }},
    {"topology 10 swp1",
     [](auto& on) {
       // A port that is blocked, and may not send, before it joins.
       auto const topo = on.topo(10);
       auto const port = topo->newPort(IntfId("swp1"));
       port->blockedIs(true);
       port->allowedTrafficDirectionIs(Direction::ingress);
       topo->portIs(port);
     },
     [](auto& on) { on.leaves(10, "swp1"); }},
    {"kernel swp1", [](auto& on) { on.kernelHas("swp1"); },
     [](auto& on) { on.kernelLoses("swp1"); }},
    {"desired swp1", [](auto& on) { on.desires("swp1"); }, [](auto& on) { on.desiresNot("swp1"); }},
};

/// What is to be found when these inputs are there.
/// @param since when each that is there has come, counted in steps.
/// @param isThere by input
Lines rule(std::vector<bool> const& isThere, Places const& since) {
  bool const isProxied = isThere[starts] && isThere[configured] && isThere[querier10];
  bool const isServed = isProxied && isThere[member] && isThere[inKernel];
  bool const isOpen = isServed && isThere[desiredPort];
  // A port's watcher tells a machine that is there whether the port is blocked, and never begins
  // with its direction. So a kernel interface that comes last makes a host that knows neither.
  std::size_t const watchedSince =
      std::max({since[starts], since[configured], since[querier10], since[member]});
  bool const isToldBlocked = isServed && since[inKernel] < watchedSince;

  Lines lines;
  if (isServed) {
    lines.push_back(
        std::string("host Vlan10swp1 vlan 10 port swp1 version 3 device swp1 blocked ") +
        (isToldBlocked ? '1' : '0') + " direction both pam " + (isOpen ? '1' : '0') +
        " configured 1 1");
    lines.push_back("port swp1 vlans 10");
  }
  std::string const served = isServed ? " swp1" : " ";
  if (isProxied) {
    lines.push_back("vlan 10 adapter 10 ports" + served + " watched" +
                    (isThere[member] ? " swp1" : " "));
    lines.push_back(std::string("adapter 10 hosts ") + (isServed ? "Vlan10swp1" : ""));
  }
  if (isThere[starts]) {
    lines.push_back(std::string("machines of adapters ") + (isProxied ? "10" : ""));
    lines.push_back(std::string("devices ") + (isOpen ? "swp1" : ""));
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

TEST(ArrivalOrder, AnyOrderServesThePort) {
  Places order(ofOnePort.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  int orders = 0;
  do {
    SCOPED_TRACE(told(ofOnePort, order));
    ProxiedSwitch on;
    std::vector<bool> isThere(order.size());
    Places since(order.size());
    for (std::size_t step = 0; step < order.size(); ++step) {
      ofOnePort[order[step]].arrives(on);
      isThere[order[step]] = true;
      since[order[step]] = step;
      ASSERT_EQ(on.picture(), rule(isThere, since)) << "after " << ofOnePort[order[step]].name;
    }
    ++orders;
  } while (std::next_permutation(order.begin(), order.end()));
  EXPECT_EQ(orders, 720);
}

TEST(ArrivalOrder, AnyOrderTakesTheHostBack) {
  Places order(ofOnePort.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  int orders = 0;
  do {
    SCOPED_TRACE(told(ofOnePort, order));
    ProxiedSwitch on;
    Places const arrival{inKernel, member, configured, querier10, desiredPort, starts};
    std::vector<bool> isThere(order.size(), true);
    Places since(order.size());
    for (std::size_t step = 0; step < arrival.size(); ++step) {
      ofOnePort[arrival[step]].arrives(on);
      since[arrival[step]] = step;
    }
    for (std::size_t const input : order) {
      ofOnePort[input].leaves(on);
      isThere[input] = false;
      ASSERT_EQ(on.picture(), rule(isThere, since)) << "after the end of " << ofOnePort[input].name;
    }
    ++orders;
  } while (std::next_permutation(order.begin(), order.end()));
  EXPECT_EQ(orders, 720);
}

TEST(ArrivalOrder, WhatLeavesAloneMayComeBack) {
  for (std::size_t const input : {starts, configured, querier10, member, inKernel, desiredPort}) {
    SCOPED_TRACE(ofOnePort[input].name);
    ProxiedSwitch on;
    std::vector<bool> const isThere(ofOnePort.size(), true);
    Places since(ofOnePort.size());
    for (std::size_t const first : {inKernel, member, configured, querier10, desiredPort, starts}) {
      ofOnePort[first].arrives(on);
      since[first] = first == inKernel ? 0 : 1;
    }
    ofOnePort[input].leaves(on);
    ofOnePort[input].arrives(on);
    since[input] = 2;
    EXPECT_EQ(on.picture(), rule(isThere, since));
  }
}

// ---- a primary VLAN with a secondary one

enum Pair { startsPair, primaryOn, primaryQuerier, secondaryRole, secondaryQuerier, secondaryPort };

std::vector<Input> const ofAPair{
    {"start", [](auto& on) { on.start(); }, [](auto& on) { on.stop(); }},
    {"proxy 10", [](auto& on) { on.proxies(10); }, [](auto& on) { on.proxies(10, false); }},
    {"querier 10", [](auto& on) { on.querierIs(10); }, [](auto& on) { on.querierDel(10); }},
    {"private 20 isolated 10", [](auto& on) { on.isolates(20, 10); },
     [](auto& on) { on.isolatesNot(20); }},
    {"querier 20", [](auto& on) { on.querierIs(20); }, [](auto& on) { on.querierDel(20); }},
    {"topology 20 swp2", [](auto& on) { on.joins(20, "swp2"); },
     [](auto& on) { on.leaves(20, "swp2"); }},
};

/// What is decided over the pair, told in the order in which it happens.
class PairRule {
 public:
  void arrives(std::size_t input) {
    isThere_[input] = true;
    decide(input);
  }
  void leaves(std::size_t input) {
    isThere_[input] = false;
    if (input == startsPair) {
      primary_ = secondary_ = hasKey_ = false;
      adapterOfSecondary_ = 0;
    } else {
      decide(input);
    }
  }

  void expectOn(ProxiedSwitch const& on) const {
    Lines proxied;
    if (primary_) proxied.push_back("10");
    if (secondary_) proxied.push_back("20");
    EXPECT_EQ(on.proxiedVlans(), proxied);
    EXPECT_EQ(on.adapters(), primary_ ? Lines{"10"} : Lines{});
    bool const hasHost = secondary_ && isThere_[secondaryPort];
    Lines hosts;
    if (primary_) hosts.push_back("Vlan10swp1");
    if (hasHost) hosts.push_back("Vlan20swp2");
    EXPECT_EQ(on.hostNames(), hosts);
    Lines keys;
    if (primary_) keys.push_back("Vlan10swp1");
    if (primary_ && hasKey_) keys.push_back("Vlan20swp2");
    EXPECT_EQ(on.hostKeys(10), keys);
    if (!secondary_) return;
    auto const adapter = on.vlanSm(20)->adapterConfig();
    EXPECT_EQ(static_cast<bool>(adapter), adapterOfSecondary_ != 0);
    if (!adapter) return;
    EXPECT_EQ(adapter == on.adapterConfig(10), primary_ && adapterOfSecondary_ == generation_);
  }

 private:
  /// The primary is looked at on all its own occasions, the secondary on its own only: its role,
  /// its querier and the start, and not its primary's switch.
  void decide(std::size_t input) {
    if (!isThere_[startsPair]) return;
    if (input == startsPair || input == primaryOn || input == primaryQuerier) {
      bool const was = std::exchange(primary_, isThere_[primaryOn] && isThere_[primaryQuerier]);
      if (primary_ && !was) {
        ++generation_;
        hasKey_ = false;
      }
    }
    if (input == startsPair || input == secondaryRole || input == secondaryQuerier) {
      bool const was = std::exchange(
          secondary_, isThere_[primaryOn] && isThere_[secondaryRole] && isThere_[secondaryQuerier]);
      if (secondary_ && !was) adapterOfSecondary_ = primary_ ? generation_ : 0;
    }
    // A machine writes the key of its port into the adapter that it was made with. It takes the
    // key out when the port leaves, but not when it goes itself, nor one that it finds there.
    bool const reachesAdapter = secondary_ && primary_ && adapterOfSecondary_ == generation_;
    if (reachesAdapter && isThere_[secondaryPort]) hasKey_ = true;
    if (reachesAdapter && input == secondaryPort) hasKey_ = isThere_[secondaryPort];
  }

  std::vector<bool> isThere_ = std::vector<bool>(ofAPair.size());
  bool primary_ = false;
  bool secondary_ = false;
  bool hasKey_ = false;
  int generation_ = 0;          // of the primary's adapter
  int adapterOfSecondary_ = 0;  // the generation that it was made with, 0 for none
};

void primaryHasItsPort(ProxiedSwitch& on) {
  on.kernelHas("swp1");
  on.kernelHas("swp2");
  on.joins(10, "swp1");
}

TEST(ArrivalOrder, AnyOrderSetsTheSecondaryUpByItsRule) {
  Places order(ofAPair.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  int orders = 0;
  do {
    SCOPED_TRACE(told(ofAPair, order));
    ProxiedSwitch on;
    primaryHasItsPort(on);
    PairRule rule;
    for (std::size_t const input : order) {
      ofAPair[input].arrives(on);
      rule.arrives(input);
      rule.expectOn(on);
    }
    ASSERT_FALSE(::testing::Test::HasFailure());
    ++orders;
  } while (std::next_permutation(order.begin(), order.end()));
  EXPECT_EQ(orders, 720);
}

TEST(ArrivalOrder, AnyOrderTakesTheSecondaryBack) {
  Places order(ofAPair.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  int orders = 0;
  do {
    SCOPED_TRACE(told(ofAPair, order));
    ProxiedSwitch on;
    primaryHasItsPort(on);
    PairRule rule;
    for (std::size_t const input :
         {primaryOn, primaryQuerier, secondaryRole, secondaryQuerier, secondaryPort, startsPair}) {
      ofAPair[input].arrives(on);
      rule.arrives(input);
    }
    rule.expectOn(on);
    ASSERT_THAT(on.hostKeys(10), ::testing::ElementsAre("Vlan10swp1", "Vlan20swp2"));
    for (std::size_t const input : order) {
      ofAPair[input].leaves(on);
      rule.leaves(input);
      rule.expectOn(on);
    }
    ASSERT_FALSE(::testing::Test::HasFailure());
    ++orders;
  } while (std::next_permutation(order.begin(), order.end()));
  EXPECT_EQ(orders, 720);
}

TEST(ArrivalOrder, EachInputMayGoAndComeBackAtAnyTime) {
  for (std::size_t const first :
       {startsPair, primaryOn, primaryQuerier, secondaryRole, secondaryQuerier, secondaryPort})
    for (std::size_t const second :
         {startsPair, primaryOn, primaryQuerier, secondaryRole, secondaryQuerier, secondaryPort}) {
      if (first == second) continue;
      SCOPED_TRACE(told(ofAPair, {first, second}));
      ProxiedSwitch on;
      primaryHasItsPort(on);
      PairRule rule;
      for (std::size_t input = 0; input < ofAPair.size(); ++input) {
        ofAPair[input].arrives(on);
        rule.arrives(input);
      }
      for (std::size_t const input : {first, second}) {
        ofAPair[input].leaves(on);
        rule.leaves(input);
        rule.expectOn(on);
      }
      for (std::size_t const input : {first, second}) {
        ofAPair[input].arrives(on);
        rule.arrives(input);
        rule.expectOn(on);
      }
    }
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
