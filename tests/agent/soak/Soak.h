#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/agent/soak/Model.h"

namespace Agent::Soak {

/// A switch with eight ports and six VLANs, two of them private, that lives through days of random
/// events. After each time of unrest comes a rest that is longer than every timer, at whose end
/// everything must be as the model has it; and at the end of each day everybody leaves.
class Soak {
 public:
  explicit Soak(std::uint64_t seed);

  /// Is called before each event, for who looks on.
  void onlookerIs(std::function<void(Switch const&)> onlooker) { onlooker_ = std::move(onlooker); }

  /// Whether all was well. It ends at the first rest at which something was not.
  bool liveThroughDay();

  /// What was wrong, and what had happened since all was well.
  std::string failure() const;

  struct Figures {
    std::uint64_t events = 0;
    std::uint64_t rests = 0;
    std::uint64_t memberships = 0;  // at all rests
    std::uint64_t records = 0;
    std::uint64_t beliefs = 0;
    std::uint64_t framesHeard = 0;
    std::uint64_t framesSent = 0;
    std::uint64_t framesLost = 0;
    std::map<std::string, std::uint64_t> eventsByKind;

    bool operator==(Figures const&) const = default;
  };
  Figures const& figures() const { return figures_; }
  static std::size_t kindsOfEvents() { return kinds().size(); }

  Horix::Time now() const { return network_.now(); }

 private:
  using Change = bool (Soak::*)();
  struct Kind {
    char const* name;
    unsigned weight;
    Change change;
  };
  static std::vector<Kind> const& kinds();

  void makeListeners();
  void makeRouters();
  bool unrest(Time end);
  bool holdsAlways();
  bool rest();
  bool emptyAtNight();
  bool holds(std::string const& what, std::string const& difference);
  bool versionsAgree();
  bool countersAgree();
  void tell(std::string const& what);

  bool listenerChanges();
  bool listenerVanishes();
  bool routerAsksOnce();
  bool queryStorm();
  bool routerStartsOrStops();
  bool routerMoves();
  bool routerChangesVersion();
  bool portFlaps();
  bool interfaceIsConfigured();
  bool vlanIsConfigured();
  bool memberComesOrGoes();

  Filter someFilter(bool excludes);
  VlanConfig& vlan(Configuration& configuration, unsigned number) const;
  Router& someRouter();

  /// What a host and a port had counted at the last rest, and what had been counted of them.
  struct HostCount {
    Kel::Ptr<Igmp::IgmpHostStatus> status;
    Igmp::HostCounters counters;
    Tally sent;
  };
  struct PortCount {
    std::uint64_t heard = 0;
    std::uint64_t given = 0;
    std::uint64_t memberChanges = 0;
  };

  std::uint64_t seed_;
  Network network_;
  Chance& chance_;
  Box& box_;
  std::function<void(Switch const&)> onlooker_ = [](Switch const&) {};
  std::vector<std::string> events_;
  std::string failure_;
  std::map<Place, HostCount> hostCounts_;
  std::map<std::string, PortCount> portCounts_;
  std::uint64_t memberChanges_ = 0;
  Figures figures_;
};

}  // namespace Agent::Soak
