#include "agent/live/AddressLog.h"

#include <string>
#include <utility>
#include <vector>

#include "agent/Log.h"
#include "agent/text/Wording.h"

namespace Agent {

using Bridging::VlanId;

namespace {

/// The interfaces that are there and whose hosts find no address.
std::vector<std::string> withoutAddress(Switch const& snoopingSwitch, VlanConfig const& vlan) {
  std::vector<std::string> interfaces;
  for (VlanMember const& member : vlan.members)
    if (snoopingSwitch.interfaceState(member.intfId).present &&
        snoopingSwitch.ownAddress(vlan.vlanId, member.intfId) == Wirex::IpAddr())
      interfaces.push_back(message(member.intfId));
  return interfaces;
}

/// Returns whether a VLAN comes in that was not.
bool comesIn(std::set<VlanId>& vlans, VlanId vlan, bool isIn) {
  if (isIn) return vlans.insert(vlan).second;
  vlans.erase(vlan);
  return false;
}

}  // namespace

AddressLog::AddressLog(Switch const& snoopingSwitch, Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : switch_(snoopingSwitch), timerWheel_(std::move(timerWheel)) {}

AddressLog::~AddressLog() = default;

void AddressLog::changed() {
  constexpr auto pause = std::chrono::seconds(1);
  if (!scheduled()) timerWheel_->schedule(*this, pause);
}

void AddressLog::onExpiry() {
  for (VlanConfig const& vlan : switch_.configuration().vlans) check(vlan);
}

void AddressLog::check(VlanConfig const& vlan) {
  bool const reportsFromOwn =
      vlan.proxy && vlan.querierVersion && !vlan.settings.senderSourceAddress;
  auto const interfaces =
      reportsFromOwn ? withoutAddress(switch_, vlan) : std::vector<std::string>();
  if (comesIn(withoutSender_, vlan.vlanId, !interfaces.empty()))
    log(Severity::warning, "VLAN ", vlan.vlanId, ": no IPv4 address is found for ",
        interfaces.size() > 1 ? "interfaces " : "interface ", enumerated(interfaces, "and"),
        ", so reports are sent from 0.0.0.0, which several routers ignore; give the VLAN's device "
        "an address, or set sender-source-address");

  auto const* const querier = switch_.querier(vlan.vlanId);
  bool const queriesFromNone = vlan.settings.sendQuery && !vlan.settings.querierSource && querier &&
                               querier->settings().source == Wirex::IpAddr();
  if (comesIn(withoutQuerier_, vlan.vlanId, queriesFromNone))
    log(Severity::warning, "VLAN ", vlan.vlanId,
        ": no IPv4 address is found for queries, so they are sent from 0.0.0.0, which makes other "
        "queriers fall silent without being a router itself; give the VLAN's device an address, or "
        "set querier-source");
}

}  // namespace Agent
