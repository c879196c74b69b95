#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "framework/types/IpAddr.h"
#include "platform/horix/Clock.h"

/// What held from when to when, as plain values.
namespace Agent {

/// Something that held for a while.
struct Span {
  Horix::Time from{};
  std::optional<Horix::Time> to;  ///< nothing if it holds at the end
  std::string text;
};

/// One thing, and what it was in the course of time.
struct HistoryRow {
  enum class Kind { querier, router, membership, record };

  Kind kind{};
  unsigned vlan = 0;
  Wirex::IpAddr group;      ///< of memberships and records
  std::string interface;    ///< of all but queriers
  Wirex::IpAddr reporter;   ///< of memberships
  std::vector<Span> spans;  ///< one after the other
};

/// By VLAN, then queriers and routers, then by group memberships and records, by interface in
/// natural order and by reporter.
bool precedes(HistoryRow const& a, HistoryRow const& b);

struct History {
  Horix::Time begin{};
  Horix::Time end{};
  /// Whether it tells of the time to come: until when each would hold if no more were heard.
  bool isAhead = false;
  std::vector<HistoryRow> rows;
  std::size_t untold = 0;  ///< changes for which there was no room
};

}  // namespace Agent
