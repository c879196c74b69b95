#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/Switch.h"
#include "agent/text/Dates.h"
#include "agent/watch/HostRecords.h"
#include "platform/snooping/RouterPorts.h"

/// Why the host of a port reports what it reports for a group: what each member port wants and on
/// whose behalf, how the proxy merges that, and whether the host sends it. Plain values, taken at
/// one time.
namespace Agent {

struct ExplainedReporter {
  Wirex::IpAddr address;
  SourceFilter filter;
  Horix::Time expiresIn{};
  Horix::Time knownFor{};
};

/// A member port of the group: what counts for it in the merge, and its reporters.
struct ExplainedPort {
  std::string interface;
  bool own = false;  ///< the port in question, which its own host leaves out
  SourceFilter wants;
  /// What its reporters want now, where that is not what counts for it.
  std::optional<SourceFilter> reportersWant;
  /// By address, and no more of them than anybody reads.
  std::vector<ExplainedReporter> reporters;
  std::size_t furtherReporters = 0;  ///< who count in what the port wants, and are not told of
};

/// What of the group was not learned as it was said, of one reporter for one reason.
struct ExplainedRefusal {
  std::string interface;
  Wirex::IpAddr reporter;
  Igmp::IgnoreReason reason{};
  std::uint64_t times = 0;
  Horix::Time sinceLatest{};
};

/// What becomes of a source that some port names.
struct ExplainedSource {
  enum class Place { included, excluded, unlisted };

  Wirex::IpAddr address;
  Place place = Place::unlisted;
  std::vector<std::string> includedBy;  ///< other ports
  std::vector<std::string> excludedBy;
  bool ownIncludes = false;
  bool ownExcludes = false;
  /// The other ports that the proxy counts, which differ from those above in rare cases.
  int including = 0;
  int excluding = 0;
};

/// How the other ports' wishes merge into one record, the first that holds.
enum class MergeRule {
  everySource,        ///< some port wants every source: EXCLUDE({})
  noCommonExclusion,  ///< ports exclude sources, but none that stays excluded: EXCLUDE({})
  commonExclusion,    ///< what all ports exclude and none includes
  inclusion,          ///< what any port includes
  nobody,             ///< no record
};

/// What is in the way of a host's sending.
enum class Obstacle {
  disabled,
  blocked,
  direction,
  noPacketAccess,
  noMacAddress,
};

/// What the host has sent for the group alone.
struct ExplainedGroupSendings {
  struct Counts {
    std::uint64_t recordsV3 = 0;
    std::uint64_t reportsV2 = 0;
    std::uint64_t reportsV1 = 0;
    std::uint64_t leaves = 0;
  };
  std::optional<Counts> counts;  ///< in a replay
  /// "v3 TO_IN 192.0.2.1", of a running agent "v3 TO_IN of 1 source"; empty: nothing was sent
  std::string latest;
  Horix::Time sinceLatest{};
};

/// Whether and how the host sends what it has to report.
struct ExplainedSending {
  Igmp::IgmpVersion configuredVersion{};
  Igmp::IgmpVersion spokenVersion{};
  Wirex::IpAddr olderQuerier;  ///< on account of which it speaks another version than configured
  std::optional<Horix::Time> sinceSent;  ///< nothing if it never sent
  std::vector<Obstacle> obstacles;
  Wirex::IpAddr sourceAddress;  ///< 0.0.0.0 if the host has none
  bool reportsUnasked = false;
  /// With its times from now on. Nothing if the port is no router port.
  std::optional<Bridging::IgmpSnooping::RouterPort> routerPort;
  Horix::Time routerPortFor{};  ///< for how long it has been one
  Igmp::HostCounters counters;
  /// Nothing where a running agent does not remember.
  std::optional<ExplainedGroupSendings> ofGroup;
};

/// Why the port has a host, or has none.
enum class Standing {
  hasHost,
  vlanUnknown,
  notAMember,
  proxyOff,
  noQuerier,
  primaryNotProxied,
  noInterface,
};

struct Explanation {
  Horix::Time time{};
  Dates dates;  ///< of times that are counted from `time`; unknown at first
  Bridging::VlanId vlan;
  Bridging::VlanId learnedIn;  ///< the VLAN itself, or for a secondary one its primary
  std::string interface;
  Wirex::IpAddr group;
  Standing standing = Standing::hasHost;

  std::vector<ExplainedPort> ports;       ///< in natural order; the own one among them
  std::vector<ExplainedRefusal> ignored;  ///< by port in natural order; of each the latest alone
  /// If the group is one of 224.0.0.0/24: how often ports heard of any of these.
  std::vector<std::pair<std::string, std::uint64_t>> linkLocalIgnored;
  MergeRule rule = MergeRule::nobody;
  std::vector<ExplainedSource> sources;  ///< by address
  std::optional<SourceFilter> merged;    ///< what the merge gives
  std::optional<SourceFilter> record;    ///< what the host has
  bool heardBack = false;                ///< only from its own port, so that it says nothing of it
  std::optional<ExplainedSending> sending;
};

/// Whether the VLAN is proxied: if not, why its ports have no hosts.
Standing standingOf(Switch const& snoopingSwitch, Bridging::VlanId vlan);

/// A router port with the times that its reasons have left.
Bridging::IgmpSnooping::RouterPort remaining(Bridging::IgmpSnooping::RouterPort port,
                                             Horix::Time now);

/// To be called when records have settled: at the end of a batch.
Explanation explain(Switch const& snoopingSwitch, Bridging::VlanId vlan, Wirex::IntfId const& intf,
                    Wirex::IpAddr group);

}  // namespace Agent
