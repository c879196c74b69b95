#include "agent/report/Warnings.h"

#include <algorithm>
#include <map>
#include <utility>

#include "agent/report/PortNames.h"
#include "agent/text/Wording.h"
#include "platform/igmp/wire/IgnoreReason.h"

namespace Agent {

namespace {

using Wirex::IpAddr;

constexpr std::size_t lineLength = 60;

/// Collects what is to be said once for several ports or VLANs.
using Places = std::map<std::string, std::vector<std::string>>;

std::string vlansText(std::vector<std::string> const& vlans) {
  return (vlans.size() == 1 ? "VLAN " : "VLANs ") + portsText(vlans, lineLength);
}

void addLimits(std::vector<Warning>& warnings, ReportData const& data) {
  for (ReportedRefusals const& each : data.ignored) {
    if (!each.cause.starts_with("too-many-")) continue;
    bool const isMerged = each.cause == name(Igmp::IgnoreReason::tooManyMemberships);
    warnings.push_back(
        {message("A limit was reached on ", each.interface, " in VLAN ", each.vlan, " (",
                 each.cause, "), ", each.count, each.count == 1 ? " time." : " times."),
         isMerged ? "Further reporters there share one membership: nobody is cut off, but the "
                    "moment of their leaving is not known."
                  : "Listeners were turned away. Raise the limit if they are wanted."});
  }
}

/// A VLAN in which nobody asks forgets its listeners.
void addQueriers(std::vector<Warning>& warnings, ReportData const& data) {
  std::vector<std::string> silent;
  for (ReportedVlan const& vlan : data.vlans) {
    bool const isHeard = std::any_of(
        data.routerPorts.begin(), data.routerPorts.end(),
        [&](auto const& port) { return port.vlan == vlan.id && port.querier != IpAddr(); });
    if (!vlan.primary && !vlan.sendsQueries && vlan.otherQuerier.empty() && !isHeard)
      silent.push_back(std::to_string(vlan.id));
  }
  if (!silent.empty())
    warnings.push_back({"No querier is heard in " + vlansText(silent) + ".",
                        "Nobody asks who listens, so memberships run out. Have a router query "
                        "there, or set send-query = true."});
}

std::string whyNotProxied(std::string const& standing) {
  if (standing == "proxy-off") return "proxy is not set to true";
  if (standing == "no-querier-configuration") return "it has no querier in the configuration";
  if (standing == "primary-not-proxied") return "its primary VLAN is not";
  return standing;
}

void addVlans(std::vector<Warning>& warnings, ReportData const& data) {
  Places notProxied;
  std::vector<std::string> withoutRouter;
  for (ReportedVlan const& vlan : data.vlans) {
    bool const hasRouter = std::any_of(data.routerPorts.begin(), data.routerPorts.end(),
                                       [&](auto const& port) { return port.vlan == vlan.id; });
    if (!vlan.isProxied())
      notProxied[vlan.standing].push_back(std::to_string(vlan.id));
    else if (!hasRouter)
      withoutRouter.push_back(std::to_string(vlan.id));
  }
  for (auto const& [standing, vlans] : notProxied)
    warnings.push_back({vlansText(vlans) + (vlans.size() == 1 ? " is" : " are") + " not proxied.",
                        "The reason: " + whyNotProxied(standing) + ". Nothing is reported there."});
  if (!withoutRouter.empty())
    warnings.push_back(
        {"No router port is known in " + vlansText(withoutRouter) + ".",
         "Hosts report there only when they are asked, unless report-on = \"all\"."});
}

void addInterfaces(std::vector<Warning>& warnings, ReportData const& data) {
  std::map<std::pair<std::string, std::string>, std::vector<std::string>> places;
  for (ReportedInterface const& each : data.interfaces)
    if (each.state != "up") places[{each.state, each.because}].push_back(each.name);
  for (auto const& [reason, names] : places)
    warnings.push_back({portsText(names, lineLength) + ": " + reason.first + ".",
                        "The reason: " + reason.second + "."});
}

void addAddresses(std::vector<Warning>& warnings, ReportData const& data) {
  std::map<unsigned, std::vector<std::string>> senders;
  for (HostRecords const& host : data.hosts)
    if (host.sourceAddress == IpAddr()) senders[host.vlan].push_back(host.interface);
  for (auto const& [vlan, ports] : senders)
    if (!data.isReplay)
      warnings.push_back({message("In VLAN ", vlan,
                                  " hosts send from 0.0.0.0: ", portsText(ports, lineLength), "."),
                          "Several routers ignore such reports. Give the VLAN's device an address, "
                          "or set sender-source-address."});
  std::map<unsigned, std::vector<std::string>> reporters;
  for (ReportedMembership const& each : data.memberships)
    if (each.reporter == IpAddr()) {
      auto& ports = reporters[each.vlan];
      if (std::find(ports.begin(), ports.end(), each.interface) == ports.end())
        ports.push_back(each.interface);
    }
  for (auto const& [vlan, ports] : reporters)
    warnings.push_back({message("In VLAN ", vlan, " reports come from 0.0.0.0, on ",
                                portsText(ports, lineLength), "."),
                        "These may be many systems, such as another switch, or those beyond a "
                        "limit: each may keep alive what another one leaves."});
}

}  // namespace

std::vector<Warning> warningsOf(ReportData const& data) {
  std::vector<Warning> warnings;
  addQueriers(warnings, data);
  addLimits(warnings, data);
  addInterfaces(warnings, data);
  addVlans(warnings, data);
  addAddresses(warnings, data);
  if (data.history.untold > 0)
    warnings.push_back({message("The time line lacks ", data.history.untold, " changes."),
                        "There were more than it has room for; --until ends earlier."});
  return warnings;
}

}  // namespace Agent
