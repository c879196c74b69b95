#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "agent/report/ReportData.h"

/// Who feeds which record: the picture's content, as plain values. Groups of which everything is
/// equal are one flow, and on a large switch so are equal ports.
namespace Agent {

/// Ports on which somebody listens to a group, who all want the same.
struct ListeningPorts {
  std::vector<std::string> names;
  SourceFilter wants;                    ///< all reporters of a port together
  std::vector<Wirex::IpAddr> reporters;  ///< of the first port
};

/// Ports whose hosts report the same of a group, fed by the same.
struct ReportingPorts {
  std::vector<std::string> names;
  std::optional<SourceFilter> record;  ///< nothing if their own listeners are the only ones
  bool isRouterPort = false;
  std::vector<std::size_t> fedBy;  ///< places in Flow::listening
  std::optional<std::size_t> own;  ///< the place of the ports themselves, if they listen
};

struct Flow {
  std::vector<Wirex::IpAddr> groups;
  std::vector<ListeningPorts> listening;
  std::vector<ReportingPorts> reporting;
};

/// What several reporters of a port want together: a source is left out only where none of them
/// wants it.
SourceFilter together(std::vector<SourceFilter> const& wishes);

/// By group.
std::vector<Flow> flowsIn(ReportData const& data, ReportedVlan const& vlan);

}  // namespace Agent
