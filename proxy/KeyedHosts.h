#pragma once

#include <cstdint>
#include <vector>

#include "framework/entities/AdapterVlanConfig.h"
#include "platform/igmp/IgmpHost.h"
#include "platform/igmp/SharedRecords.h"

namespace Bridging::IgmpSnooping::Proxy {

/// The hosts of a VLAN's keys, in the keys' order, as they were last found: to look each of them up
/// for each change would cost more than most changes.
class KeyedHosts {
 public:
  /// What they were found in.
  struct Sources {
    AdapterVlanConfig const& config;    ///< the keys
    Igmp::IgmpHostDir const& hosts;     ///< the hosts that they name
    Igmp::SharedRecords const& shared;  ///< what these have in common
  };

  /// Finds them anew where keys or hosts have come or gone. Returns how often it has.
  /// @param find finds a key's host, or null
  template <class Find>
  std::uint32_t update(Sources const& sources, Find find) {
    if (found_ > 0 && versions_ == Versions(sources)) return found_;
    places_.clear();
    for (auto const& [key, value] : sources.config.hostKey()) {
      Igmp::IgmpHost const* const host = find(key);
      places_.push_back(
          {host, host ? host->v3groupNumberIn(sources.shared) : Igmp::SharedRecords::none});
    }
    versions_ = Versions(sources);  // to find a host may have it share
    return ++found_;
  }

  /// Whether they are still those that an update found.
  bool isUpToDate(Sources const& sources, std::uint32_t found) const {
    return found == found_ && versions_ == Versions(sources);
  }

  /// Whether a renewal of shared records is all that it takes for the host of a key, because it has
  /// none of its own and nobody hears of it. To be asked only while they are up to date.
  bool isReachedBy(Igmp::SharedRecords::Renewal& renewal, std::uint32_t key) const {
    auto const [host, number] = places_[key];
    if (number == Igmp::SharedRecords::none) return false;
    if (renewal.isOfPresence() && host->v3groupIsHeard()) return false;
    return renewal.reaches(number);
  }

 private:
  struct Place {
    Igmp::IgmpHost const* host;
    std::uint32_t number;  // among those that share records
  };
  struct Versions {
    Versions() = default;
    explicit Versions(Sources const& sources)
        : keys(sources.config.hostKeyVersion()),
          keyCount(sources.config.hostKey().size()),
          hosts(sources.hosts.igmpHostVersion()),
          hostCount(sources.hosts.igmpHost().size()),
          sharing(sources.shared.hostVersion()) {}
    bool operator==(Versions const&) const = default;

    std::uint32_t keys = 0, keyCount = 0;
    std::uint32_t hosts = 0, hostCount = 0;
    std::uint32_t sharing = 0;
  };

  std::vector<Place> places_;
  Versions versions_;
  std::uint32_t found_ = 0;
};

}  // namespace Bridging::IgmpSnooping::Proxy
