#pragma once

#include <iosfwd>
#include <vector>

namespace Bridging::IgmpSnooping::Proxy::Random {

/// One change to what the proxy watches, or to the proxy itself. It can be applied to any state:
/// what finds nothing to apply to does nothing, so that sequences can be shortened.
struct Change {
  enum class What {
    vlanPrepared,
    vlanForgotten,
    contextAdded,
    contextRemoved,
    proxyingSet,
    querierAdded,
    querierRemoved,
    querierVersionSet,
    querierProtocolReplaced,
    formerProtocolChanged,
    roleSet,
    roleRemoved,
    vlanRaised,
    portJoined,
    portLeft,
    portReplaced,
    portPutBack,
    portBlocked,
    portDirected,
    removedPortChanged,
    portRaised,
    deviceSet,
    deviceRemoved,
    deviceRaised,
    desiredSet,
    desiredRemoved,
    taggedSet,
    taggedRemoved,
    listenerReports,
    listenerLeaves,
    reportRaised,
    proxyDropped,
    proxyMade,
  };
  static constexpr What last = What::proxyMade;

  What what = What::proxyMade;
  int vlan = 0;
  int port = 0;
  bool on = false;  // enabled, blocked, desired, tagged, published, by way of none
  int version = 3;
  int direction = 0;
  int device = 0;  // 0 is a record that says that there is none
  int type = 0;    // of a private VLAN
  int primary = 1;
  int group = 0;
  int reporter = 0;
  bool excludes = false;
  std::vector<int> sources;
};

/// The change as one line of a story.
std::ostream& operator<<(std::ostream& out, Change const& change);

}  // namespace Bridging::IgmpSnooping::Proxy::Random
