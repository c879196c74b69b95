#include <algorithm>
#include <utility>

#include "agent/Log.h"
#include "agent/forwarding/Forwarding.h"

/// How forwarding keeps the ports that lead to routers in step with what is known of routers.
namespace Agent {

using Wirex::IntfId;

namespace {

/// As the kernel has it: always, or never.
constexpr std::uint32_t routerSetting(bool leadsToRouter) {
  return leadsToRouter ? 2 : 0;
}

}  // namespace

std::set<IntfId> Forwarding::routersWanted() const {
  std::set<IntfId> routers;
  for (auto const& [intf, index] : ports_)
    if (routerPorts_.leadsToRouterInAll(vlans_, intf)) routers.insert(intf);
  return routers;
}

/// Whether the kernel has them as they were set.
bool Forwarding::routersAreAsSet() const {
  return std::all_of(members_.begin(), members_.end(), [this](LinkInfo const& link) {
    auto const setting = link.settings.find(LinkSetting::portRouter);
    auto const port = std::find_if(ports_.begin(), ports_.end(),
                                   [&](auto const& each) { return each.second == link.index; });
    return port == ports_.end() || setting == link.settings.end() ||
           setting->second == routerSetting(routers_.contains(port->first));
  });
}

/// A port that becomes a router port gets everything at once. One that no longer is one keeps
/// getting it until its entries are written.
void Forwarding::routersAre(std::set<IntfId> routers, bool demote) {
  members_ = control_->portsOf(bridge_.index);
  std::vector<BridgeControl::Setting> settings;
  for (auto const& [intf, index] : ports_) {
    bool const becomes = routers.contains(intf);
    bool const was = routers_.contains(intf);
    if (!becomes && was && !demote) {
      routers.insert(intf);
      continue;
    }
    auto const link =
        std::find_if(members_.begin(), members_.end(),
                     [wanted = index](auto const& each) { return each.index == wanted; });
    if (link == members_.end()) continue;
    auto const present = link->settings.find(LinkSetting::portRouter);
    std::uint32_t const value = routerSetting(becomes);
    if (present != link->settings.end() && present->second != value)
      settings.push_back({*link, LinkSetting::portRouter, value});
  }
  for (std::string const& refusal : control_->settingsAre(settings))
    log(Severity::warning, "forwarding: ", refusal);
  routers_ = std::move(routers);
}

/// A router that was heard again changes nothing here.
void Forwarding::followRouters() {
  if (!routerPorts_.takeNews()) return;
  auto routersOf = routerPorts_.ports(vlans_);
  if (routersOf == routersOf_) return;
  routersOf_ = std::move(routersOf);
  routersAre(routersWanted(), false);
  for (ForwardedVlan const& vlan : vlans_)
    if (progress_.goesByEntries(vlan.vlanId) && !runRules(routersTextOf(vlan), vlan.vlanId)) {
      putRules();
      return;
    }
  sweepAll();
}

std::string Forwarding::routersTextOf(ForwardedVlan const& vlan) const {
  std::vector<std::uint32_t> routers;
  for (auto const& [intf, port] : ports_)
    if (isRouterPort(vlan, intf)) routers.push_back(port);
  return routersText(vlan.entryVlan, routers);
}

}  // namespace Agent
