#include "tests/proxy/random/Change.h"

#include <array>
#include <ostream>

namespace Bridging::IgmpSnooping::Proxy::Random {

namespace {

constexpr std::array directions{"both", "ingress", "egress", "none"};
constexpr std::array types{"normal", "isolated", "community"};

char const* direction(Change const& change) {
  return directions[static_cast<std::size_t>(change.direction)];
}

char const* nowBlocked(Change const& change) {
  return change.on ? "blocked" : "not blocked";
}

struct Listener {
  Change const& change;
};

std::ostream& operator<<(std::ostream& out, Listener const& listener) {
  return out << "VLAN " << listener.change.vlan << ": reporter " << listener.change.reporter
             << " on port " << listener.change.port;
}

std::ostream& operator<<(std::ostream& out, std::vector<int> const& sources) {
  out << '{';
  char const* separator = "";
  for (int const source : sources) {
    out << separator << 's' << source;
    separator = ", ";
  }
  return out << '}';
}

std::ostream& inVlan(std::ostream& out, Change const& change) {
  return out << "VLAN " << change.vlan << ": ";
}
std::ostream& ofPort(std::ostream& out, Change const& change) {
  return out << "port " << change.port << ": ";
}
std::ostream& ofPortInVlan(std::ostream& out, Change const& change) {
  return out << "port " << change.port << " in VLAN " << change.vlan << ": ";
}

}  // namespace

std::ostream& operator<<(std::ostream& out, Change const& change) {
  using What = Change::What;
  switch (change.what) {
    case What::vlanPrepared:
      return inVlan(out, change) << "topology and snooping status appear";
    case What::vlanForgotten:
      return inVlan(out, change) << "topology and snooping status go";
    case What::contextAdded:
      return inVlan(out, change) << "a configuration entry appears";
    case What::contextRemoved:
      return inVlan(out, change) << "the configuration entry goes";
    case What::proxyingSet:
      return inVlan(out, change) << "proxying is switched " << (change.on ? "on" : "off");
    case What::querierAdded:
      return inVlan(out, change) << "a querier of version " << change.version << " appears";
    case What::querierRemoved:
      return inVlan(out, change) << "the querier goes";
    case What::querierVersionSet:
      return inVlan(out, change) << "the querier goes over to version " << change.version;
    case What::querierProtocolReplaced:
      return inVlan(out, change) << "the querier's protocol configuration is replaced"
                                 << (change.on ? ", by way of none," : "") << " by one of version "
                                 << change.version;
    case What::formerProtocolChanged:
      return inVlan(out, change) << "the protocol configuration last replaced goes over to version "
                                 << change.version;
    case What::roleSet:
      return inVlan(out, change) << "becomes " << types[static_cast<std::size_t>(change.type)]
                                 << ", of primary VLAN " << change.primary;
    case What::roleRemoved:
      return inVlan(out, change) << "is no private VLAN any more";
    case What::vlanRaised:
      return inVlan(out, change) << "entry, role and querier are raised";
    case What::portJoined:
      return ofPortInVlan(out, change) << "becomes a member";
    case What::portLeft:
      return ofPortInVlan(out, change) << "is a member no more";
    case What::portReplaced:
      return ofPortInVlan(out, change) << "another object is put in place, " << nowBlocked(change)
                                       << ", direction " << direction(change);
    case What::portPutBack:
      return ofPortInVlan(out, change) << "the object last removed is put back";
    case What::portBlocked:
      return ofPortInVlan(out, change) << "is now " << nowBlocked(change);
    case What::portDirected:
      return ofPortInVlan(out, change) << "now has direction " << direction(change);
    case What::removedPortChanged:
      return ofPortInVlan(out, change) << "the object last removed is now " << nowBlocked(change)
                                       << ", direction " << direction(change);
    case What::portRaised:
      return ofPortInVlan(out, change) << (change.on ? "all ports are raised" : "is raised");
    case What::deviceSet:
      if (change.device == 0) return ofPort(out, change) << "gets an empty kernel record";
      return ofPort(out, change) << "the kernel has it as device " << change.device;
    case What::deviceRemoved:
      return ofPort(out, change) << "the kernel has it no more";
    case What::deviceRaised:
      return ofPort(out, change) << (change.on ? "all kernel records are raised"
                                               : "the kernel record is raised");
    case What::desiredSet:
      return ofPort(out, change) << "packet access is " << (change.on ? "" : "not ") << "desired";
    case What::desiredRemoved:
      return ofPort(out, change) << "nothing is said of desired packet access";
    case What::taggedSet:
      return ofPortInVlan(out, change) << "is configured " << (change.on ? "tagged" : "untagged");
    case What::taggedRemoved:
      return ofPortInVlan(out, change) << "is not configured";
    case What::listenerReports:
      return out << Listener{change} << (change.excludes ? " excludes " : " includes ")
                 << change.sources << " of group " << change.group
                 << (change.on ? "" : ", which is not raised yet");
    case What::listenerLeaves:
      return out << Listener{change} << " leaves group " << change.group
                 << (change.on ? "" : ", which is not raised yet");
    case What::reportRaised:
      return inVlan(out, change) << "a report is raised";
    case What::proxyDropped:
      return out << "the proxy is dropped";
    case What::proxyMade:
      return out << "the proxy is made";
  }
  return out;
}

}  // namespace Bridging::IgmpSnooping::Proxy::Random
