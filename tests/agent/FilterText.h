#pragma once

#include <optional>
#include <string>

#include "agent/text/Wording.h"
#include "agent/watch/HostRecords.h"

namespace Agent {

/// How tests say a filter: "include 192.0.2.1 192.0.2.2", "exclude", or "none".
inline std::string filterText(std::optional<SourceFilter> const& filter) {
  if (!filter) return "none";
  std::string text = message(filter->mode);
  for (Wirex::IpAddr const source : filter->sources) text += message(' ', source);
  return text;
}

}  // namespace Agent
