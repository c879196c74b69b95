#pragma once

#include <algorithm>
#include <vector>

#include "platform/igmp/IgmpHost.h"

namespace Igmp {

/// What a host wants of a group (RFC 9776 section 3.2). No state is INCLUDE without sources.
struct ReceptionState {
  bool excludes = false;
  std::vector<Wirex::IpAddr> sources{};  ///< ascending

  bool empty() const noexcept { return !excludes && sources.empty(); }

  bool wants(Wirex::IpAddr source) const {
    return std::binary_search(sources.begin(), sources.end(), source) != excludes;
  }

  friend bool operator==(ReceptionState const&, ReceptionState const&) = default;
};

// Of a record that may be null.
bool hasReceptionState(IgmpV3GroupRecord const* record);
ReceptionState receptionState(IgmpV3GroupRecord const* record);

}  // namespace Igmp
