#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "tests/proxy/model/AdapterDriver.h"
#include "tests/proxy/model/Event.h"

namespace Bridging::IgmpSnooping::Proxy::Model {

/// How far a sequence may spread, from the deep states of one group to many groups.
struct Extent {
  int groups = 1;
  int ports = 1;
  int reporters = 1;
  int sources = 1;
};

/// Draws the events of one sequence. Everything about it follows from the seed, on any platform.
class EventGenerator {
 public:
  enum class Kind { deep, wide };

  EventGenerator(std::uint64_t seed, Kind kind);

  /// How many events the sequence should have.
  int length() const { return length_; }

  /// An event that finds something to apply to in most cases.
  Event next(AdapterDriver const& driver);

 private:
  int from(int first, int last);
  bool oneIn(int n) { return from(1, n) == 1; }
  bool percent(int chance) { return from(1, 100) <= chance; }
  std::vector<int> someSources();
  std::vector<Reporter> someReporters(int firstPort, int lastPort);
  Event::What what(AdapterDriver const& driver);
  void aimAtPresent(Event& event, AdapterDriver const& driver);

  std::mt19937_64 engine_;
  Extent extent_;
  int length_;
  int eventsPerRun_;         // on average
  int runsPerReport_;        // on average
  int churnPercent_;         // of events by which groups, ports and reporters come and go
  int eventsPerHostChange_;  // on average
  int excludesPercent_;      // of the filter modes that are set
};

}  // namespace Bridging::IgmpSnooping::Proxy::Model
