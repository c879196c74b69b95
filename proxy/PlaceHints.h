#pragma once

#include <cstdint>
#include <vector>

namespace Bridging::IgmpSnooping::Proxy {

/// Where entries were found in collections before, by a number that each of them has. A change
/// looks its group up in every host: where there are many groups, the cache misses of a lookup by
/// hash cost more than all the rest.
class PlaceHints {
 public:
  static constexpr std::uint32_t unknown = UINT32_MAX;

  /// The hint of an entry, to be read and written. Lasts until the next call.
  /// @param entries how many there are; `entry` is below that.
  std::uint32_t& of(std::uint32_t entry, std::uint32_t entries) {
    if (entry >= places_.size()) places_.resize(entries, unknown);
    return places_[entry];
  }

 private:
  std::vector<std::uint32_t> places_;
};

}  // namespace Bridging::IgmpSnooping::Proxy
