#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "agent/output/JsonValues.h"
#include "agent/report/History.h"
#include "agent/watch/HostRecords.h"

/// What the report page shows, as plain values. Lists are sorted as `show` sorts them.
namespace Agent {

struct ReportedVlan {
  unsigned id = 0;
  std::string standing;             ///< "has-host", or why it is not proxied
  std::optional<unsigned> primary;  ///< of a secondary private VLAN
  bool sendsQueries = false;
  std::string otherQuerier;        ///< empty if none is elected
  std::vector<std::string> ports;  ///< in natural order

  bool isProxied() const { return standing == "has-host"; }
  /// The VLAN whose memberships are those of this one.
  unsigned learnedIn() const { return primary.value_or(id); }
};

struct ReportedInterface {
  std::string name;
  std::string state;    ///< "up", or the reason why not
  std::string because;  ///< the same with the remedy, as a clause; empty if it is up
  std::string direction;
  unsigned mtu = 0;
  std::string vlans;
};

struct ReportedMembership {
  unsigned vlan = 0;
  Wirex::IpAddr group;
  std::string interface;
  Wirex::IpAddr reporter;
  SourceFilter filter;
  std::string since;  ///< empty where the time of day is not known, and so below
  Horix::Time expiresIn{};
};

struct ReportedRouterPort {
  unsigned vlan = 0;
  std::string interface;
  std::string since;
  bool configured = false;
  Wirex::IpAddr querier;  ///< 0.0.0.0 if none was heard, and so below
  std::optional<Horix::Time> querierExpiresIn;
  Wirex::IpAddr pimNeighbor;
  std::optional<Horix::Time> pimExpiresIn;  ///< nothing if it never does
};

/// What a bridge's port should have of a group, beside what the kernel has.
struct ReportedEntry {
  unsigned vlan = 0;
  Wirex::IpAddr group;
  std::string interface;
  std::string state;
  SourceFilter filter;
};

/// What a port did not use.
struct ReportedRefusals {
  std::string vlan;  ///< empty for frames of none of the port's VLANs
  std::string interface;
  std::string cause;
  std::uint64_t count = 0;
};

/// One table of counters.
struct ReportedCounters {
  std::string title;
  std::vector<std::string> columns;
  std::size_t textColumns = 0;  ///< the first ones, which say of what
  std::vector<std::vector<std::string>> rows;
};

struct ReportData {
  std::string subject;  ///< what was looked at: file names, a socket
  bool isReplay = false;
  Horix::Time time{};  ///< since the first packet, or the agent's start
  std::string date;    ///< the time of day
  std::vector<ReportedVlan> vlans;
  std::vector<ReportedInterface> interfaces;
  std::vector<ReportedMembership> memberships;
  std::vector<HostRecords> hosts;
  std::vector<ReportedRouterPort> routerPorts;
  std::vector<ReportedEntry> entries;
  std::vector<ReportedRefusals> ignored;
  std::vector<ReportedCounters> counters;
  History history;
};

/// The lists that a page is made of, as `show` calls them.
inline constexpr std::array<char const*, 6> reportLists{"vlans", "interfaces", "groups",
                                                        "hosts", "mrouters",   "statistics"};

/// What only a running agent knows.
inline constexpr char const* forwardingList = "forwarding";

/// Takes over what one of these lists says.
/// @param document as `show LIST -j` prints it.
void addList(ReportData& data, std::string const& list, Json const& document);

/// Until when what is known holds if no more is heard: what can be told of the time where nobody
/// kept a history.
History outlook(ReportData const& data);

}  // namespace Agent
