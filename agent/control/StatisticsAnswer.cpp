#include "agent/control/StatisticsAnswer.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "agent/Log.h"
#include "agent/control/Listing.h"
#include "agent/output/Counters.h"
#include "agent/output/JsonValues.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Bridging::VlanId;
using Bridging::IgmpSnooping::Proxy::PortKey;
using Wirex::IntfId;

class StatisticsListing final : public Listing {
 public:
  StatisticsListing(Switch const& snoopingSwitch, Request const& request, Epoch const& epoch,
                    ConfigurationState const* configuration)
      : Listing(snoopingSwitch, request, epoch,
                {"agent", "vlans", "interfaces", "hosts", "devices"}),
        configuration_(configuration) {
    for (InterfaceConfig const& interface : snoopingSwitch.configuration().interfaces)
      left_.push_back(interface.intfId);
    std::reverse(left_.begin(), left_.end());
  }

 private:
  bool advanceList(std::string& out) override {
    if (!std::exchange(agentIsTold_, true)) addAgent(out);
    if (!advanceVlans(out, [&](VlanConfig const& vlan) {
          if (isSelected(vlan)) addVlan(out, vlan);
        }))
      return false;
    for (; !left_.empty() && out.size() < bytesAtOnce; left_.pop_back())
      if (of().has(left_.back())) addInterface(out, left_.back());
    return left_.empty();
  }

  /// What belongs to none of its VLANs.
  void addInterface(std::string& out, IntfId const& intf) const {
    auto const port = theSwitch().ports().find(intf);
    if (port != theSwitch().ports().end() && !of().vlan)
      add(out, "interfaces", portObject(std::nullopt, intf, port->second.countersInNoVlan()));
    if (auto const pam = theSwitch().snooping().ethDevPamCol()->intfPam(intf))
      add(out, "devices", deviceObject(intf, pam->counters()));
  }

  void addAgent(std::string& out) const {
    auto const& turns = theSwitch().turns();
    Json object;
    object["turn-count"] = turns.count;
    object["longest-turn"] = seconds(turns.longest);
    object["lost-log-line-count"] = lostLogLines();
    if (configuration_) object["refused-configuration-count"] = configuration_->refusals;
    add(out, "agent", std::move(object));
  }

  void addVlan(std::string& out, VlanConfig const& vlan) {
    if (auto const* const querier = theSwitch().querier(vlan.vlanId)) {
      Json object;
      object["vlan"] = vlan.vlanId.value();
      addValues(object["sent"], queriesSent, querier->sent());
      add(out, "vlans", std::move(object));
    }
    for (VlanMember const& member : vlan.members)
      if (of().has(member.intfId)) addPort(out, {vlan.vlanId, member.intfId});
  }

  void addPort(std::string& out, PortKey const& key) const {
    auto const port = theSwitch().ports().find(key.intfId());
    if (port != theSwitch().ports().end())
      if (auto const* const counters = port->second.counters(key.vlanId()))
        add(out, "interfaces", portObject(key.vlanId(), key.intfId(), *counters));
    addHost(out, key);
  }

  void addHost(std::string& out, PortKey const& key) const {
    auto const status = theSwitch().proxy().igmpHostStatusDir()->igmpHostStatus(key.hostName());
    if (!status) return;
    Igmp::HostCounters const& counters = status->counters();
    Json object;
    object["vlan"] = key.vlanId().value();
    object["name"] = message(key.intfId());
    object["received"]["query-count"] = counters.queriesHeard;
    addValues(object["sent"], messagesSent, counters);
    add(out, "hosts", std::move(object));
  }

  /// @param vlan nothing for frames that belong to none of the port's VLANs.
  static Json portObject(std::optional<VlanId> vlan, IntfId const& intf,
                         ReceiveCounters const& counters) {
    Json object;
    if (vlan) object["vlan"] = vlan->value();
    object["name"] = message(intf);
    addValues(object["received"], messagesReceived, counters);
    Json& ignored = object["ignored"] = Json::object();
    for (std::size_t i = 0; i < Igmp::ignoreReasons; ++i)
      if (counters.ignored[i] != 0)
        ignored[message(static_cast<Igmp::IgnoreReason>(i))] = counters.ignored[i];
    return object;
  }

  static Json deviceObject(IntfId const& intf, Interface::EthDevPam::Counters const& counters) {
    Json object;
    object["name"] = message(intf);
    addValues(object, deviceFrames, counters);
    return object;
  }

  template <class Counters, std::size_t size>
  static void addValues(Json& object, std::array<Counter<Counters>, size> const& counters,
                        Counters const& values) {
    for (auto const& counter : counters) object[counter.key] = counter.value(values);
  }

  ConfigurationState const* configuration_;
  bool agentIsTold_ = false;
  std::vector<IntfId> left_;  // still to be shown, the next one last
};

}  // namespace

std::unique_ptr<Answer> statisticsAnswer(Switch const& snoopingSwitch, Request const& request,
                                         Epoch const& epoch,
                                         ConfigurationState const* configuration) {
  return std::make_unique<StatisticsListing>(snoopingSwitch, request, epoch, configuration);
}

}  // namespace Agent
