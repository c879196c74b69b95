#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"

namespace Agent {

/// The groups that may have to be written, by the VLAN in which they are learned: those that have
/// changed first, each once.
class PendingGroups {
 public:
  using Learned = std::pair<Bridging::VlanId, Wirex::IpAddr>;

  bool empty() const { return changed_.empty() && sweep_.empty(); }
  void clear() {
    changed_.clear();
    sweep_.clear();
  }

  void addChanged(Learned const& learned) {
    changed_.try_emplace(std::uint64_t{learned.first.value()} << 32 | learned.second.value(),
                         learned);
  }

  /// All of which some may have changed.
  void sweepIs(std::vector<Learned> groups) { sweep_ = std::move(groups); }
  void addToSweep(Learned const& learned) { sweep_.push_back(learned); }

  /// Nothing if there is none.
  std::optional<Learned> takeNext() {
    std::optional<Learned> next;
    if (!changed_.empty()) {
      next = changed_.begin()->second;
      changed_.erase(changed_.begin());
    } else if (!sweep_.empty()) {
      next = sweep_.back();
      sweep_.pop_back();
    }
    return next;
  }

 private:
  std::unordered_map<std::uint64_t, Learned> changed_;
  std::vector<Learned> sweep_;
};

}  // namespace Agent
