#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "tests/proxy/random/Change.h"
#include "tests/proxy/random/Inputs.h"

namespace Bridging::IgmpSnooping::Proxy::Random {

/// Draws the changes of one sequence. Everything about it follows from the seed, on any platform.
class ChangeGenerator {
 public:
  enum class Kind { few, many };  // VLANs and ports

  ChangeGenerator(std::uint64_t seed, Kind kind);

  /// How many changes the sequence should have.
  int length() const { return length_; }

  /// A change that finds something to apply to in most cases.
  Change next(Inputs const& inputs, bool hasProxy);

 private:
  int from(int first, int last);
  bool oneIn(int n) { return from(1, n) == 1; }
  bool percent(int chance) { return from(1, 100) <= chance; }
  int vlan() { return vlans_[static_cast<std::size_t>(from(0, vlanCount_ - 1))]; }
  int kindOfPrivateVlan() { return oneIn(6) ? 0 : from(1, 2); }
  Change::What what();
  void doWhatComesFirst(Change& change, Inputs const& inputs);
  void aimAtMember(Change& change, Inputs const& inputs);
  void aimAtListener(Change& change, Inputs const& inputs);

  std::mt19937_64 engine_;
  std::vector<int> vlans_;
  int vlanCount_ = 0;
  int portCount_ = 0;
  int length_ = 0;
  int onPercent_ = 0;       // of what is enabled, desired and so on
  int listenerWeight_ = 0;  // how much of all is reporting
  int privateWeight_ = 0;   // and changes of private VLANs
  int startDelay_ = 0;      // how many changes come before a proxy, on average
};

}  // namespace Bridging::IgmpSnooping::Proxy::Random
