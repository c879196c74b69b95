#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/agent/soak/Model.h"

namespace Agent::Soak {

/// Switches of ours that are connected, and who asks in their VLAN.
struct Layout {
  struct Node {
    char name = 0;  ///< of its ports, a-1 to a-4
    std::string defaults;
    std::string vlan;
  };

  char const* name = nullptr;
  std::vector<Node> switches;
  std::vector<std::vector<std::string>> segments;  ///< without a loop
  std::string routerPort;                          ///< empty: there is no router
};

class Lan;

/// Something that happens at a time of its own, whatever else has happened.
struct Event {
  Time at{};
  std::string what;
  std::function<void(Lan&)> happen;
};

/// What was wrong after these events.
struct Failure {
  std::vector<Event> events;
  std::string what;
};

std::ostream& operator<<(std::ostream& out, Failure const& failure);

/// Listeners of every version at each switch, and perhaps a router.
class Lan {
 public:
  explicit Lan(Layout const& layout);

  /// As random as the seed; in the order of their times.
  static std::vector<Event> someEvents(Layout const& layout, std::uint64_t seed);

  /// Somewhat later than the last of them.
  static Event everybodyLeaves(std::vector<Event> const& events);

  /// Lets the events happen, and then nothing for so long that all must have settled. Failure: then
  /// somebody is cut off, something is known that nobody wants, or something still changes.
  static std::optional<Failure> live(Layout const& layout, std::vector<Event> const& events);

 private:
  struct Known {
    std::vector<Memberships> memberships;  // by switch
    std::vector<Records> records;
    std::map<Address, Filter> belief;

    friend bool operator==(Known const&, Known const&) = default;
  };

  bool hasRouter() const { return !network_.routers().empty(); }
  Router& router() const { return *network_.routers().front().second; }
  void isAtRest();
  Known known() const;
  std::vector<std::string> portsOf(Box const& box) const;
  std::vector<std::string> portsBeyond(std::string const& port) const;
  std::vector<Listener const*> listenersBeyond(std::string const& port) const;
  Filter wantedByAll(Address group) const;
  std::string cutOffAtSwitches() const;
  std::string wrongOfRouter() const;
  std::string wrongOfSwitches(Known const& known) const;
  std::string leftOver(Known const& known) const;

  Layout layout_;
  Network network_{1};
  std::vector<Box*> boxes_;
};

}  // namespace Agent::Soak
